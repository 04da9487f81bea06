#include "chaos/oracle.h"

#include <sqlite3.h>

#include <filesystem>
#include <functional>

#include "platform/files.h"
#include "rsapi-cpp/simple-file-reader.h"

namespace tolven::test {

namespace {

constexpr char kOwnFolder[] = ".ZentrovaWorkingDirectory";
constexpr char kRecycleBin[] = "#ZentRecycle";
constexpr char kRootId[] = "#RootId";

std::string Text(sqlite3_stmt* row, int column) {
  const unsigned char* const text = sqlite3_column_text(row, column);
  return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

std::uint64_t Number(sqlite3_stmt* row, int column) {
  return static_cast<std::uint64_t>(sqlite3_column_int64(row, column));
}

std::string Md4(const std::string& path) {
  SimpleFileReader reader;
  ustring hash;
  reader.setFile(ustring(path));
  reader.setHashString(hash);
  return reader.readFile() == 0 ? hash.str() : "unreadable";
}

Listing ReadRows(const ClientProcess& client) {
  Listing listing;
  client.Query(
      "SELECT path, fileType, fileSize, fileCheckSum, localFileModTime, syncID FROM event_table "
      "WHERE isExist = 1 AND path <> '/';",
      [&](sqlite3_stmt* row) {
        const bool is_dir = Number(row, 1) != 0;
        listing[Text(row, 0)] = {is_dir, Number(row, 2), Text(row, 3),
                                 is_dir ? 0 : sqlite3_column_int64(row, 4), Number(row, 5)};
      });
  return listing;
}

std::string ToText(const Listing& listing, const std::string& path) {
  const auto found = listing.find(path);
  if (found == listing.end()) return "nothing";
  const Seen& seen = found->second;
  const std::string number = seen.number == 0 ? "" : " #" + std::to_string(seen.number);
  if (seen.is_dir) return "folder" + number;
  return std::to_string(seen.size) + " bytes " + seen.md4.substr(0, 8) + " of " +
         std::to_string(seen.mtime) + number;
}

bool AreEqual(const Seen& a, const Seen& b) {
  return a.is_dir == b.is_dir && a.size == b.size && a.md4 == b.md4 && a.mtime == b.mtime &&
         (a.number == 0 || b.number == 0 || a.number == b.number);
}

void Compare(const Listing& a, const Listing& b, const std::string& what,
             std::vector<std::string>& differences) {
  std::set<std::string> paths;
  for (const auto& [path, seen] : a) paths.insert(path);
  for (const auto& [path, seen] : b) paths.insert(path);
  for (const std::string& path : paths) {
    const auto in_a = a.find(path), in_b = b.find(path);
    if (in_a != a.end() && in_b != b.end() && AreEqual(in_a->second, in_b->second)) continue;
    differences.push_back(what + " '" + path + "': " + ToText(a, path) + " / " + ToText(b, path));
  }
}

bool IsSignature(const std::string& name) {
  const std::string digits = "0123456789abcdef";
  return name.size() == 3 && name[0] == '.' && digits.find(name[1]) != std::string::npos &&
         digits.find(name[2]) != std::string::npos;
}

}  // namespace

Listing Oracle::Folder(const std::string& root) {
  Listing listing;
  std::error_code error;
  for (fs::recursive_directory_iterator at(root, error), end; !error && at != end;
       at.increment(error)) {
    const std::string path = at->path().string();
    if (at->path().filename() == kOwnFolder) {
      at.disable_recursion_pending();
      continue;
    }
    platform::NodeInfo info;
    if (!platform::files().Stat(ustring(path), info).ok()) continue;
    Seen& seen = listing[path.substr(root.size())];
    seen.is_dir = info.kind == platform::NodeKind::kDirectory;
    if (seen.is_dir) continue;
    seen.size = info.size;
    seen.mtime = info.mtime_ns / 1'000'000'000;
    seen.md4 = Md4(path);
  }
  return listing;
}

std::vector<std::string> Oracle::Changes(const Listing& before, const Listing& after,
                                         const std::string& what) {
  std::vector<std::string> changes;
  Compare(before, after, what, changes);
  return changes;
}

void Oracle::Query(const char* sql, const std::function<void(sqlite3_stmt*)>& each) const {
  sqlite3* db = nullptr;
  const std::string path = server_.Data() + "/metadata.sqlite";
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
    sqlite3_busy_timeout(db, 10'000);
    sqlite3_stmt* row = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &row, nullptr) == SQLITE_OK) {
      while (sqlite3_step(row) == SQLITE_ROW) each(row);
    }
    sqlite3_finalize(row);
  }
  sqlite3_close(db);
}

Listing Oracle::View() const {
  Listing listing;
  Query(
      "SELECT path, is_dir, size, md4, mtime, sync_id FROM nodes LEFT JOIN contents ON "
      "contents.id = content_id WHERE is_removed = 0 AND path <> '/';",
      [&](sqlite3_stmt* row) {
        const bool is_dir = Number(row, 1) != 0;
        listing[Text(row, 0)] = {is_dir, is_dir ? 0 : Number(row, 2), is_dir ? "" : Text(row, 3),
                                 is_dir ? 0 : sqlite3_column_int64(row, 4), Number(row, 5)};
      });
  return listing;
}

std::vector<std::string> Oracle::Differences(const ClientProcess& client,
                                             const std::string& name) const {
  std::vector<std::string> differences;
  const Listing view = View();
  Compare(Folder(client.root()), view, name + ", folder / view:", differences);
  Compare(ReadRows(client), view, name + ", rows / view:", differences);
  for (const char* table : {"server_filter_table", "local_filter_table"}) {
    client.Query(std::string("SELECT path FROM ") + table + ";", [&](sqlite3_stmt* row) {
      differences.push_back(name + ", " + table + ": '" + Text(row, 0) + "'");
    });
  }
  return differences;
}

std::vector<std::string> Oracle::LeftOvers(const ClientProcess& client, const std::string& name,
                                           bool was_there) const {
  std::vector<std::string> left;
  for (const auto& item : fs::directory_iterator(client.working_directory())) {
    const std::string file = item.path().filename().string();
    if (was_there && file != kRecycleBin && file != kRootId) {
      left.push_back(name + ", working directory: " + file);
    }
  }
  for (const auto& item : fs::recursive_directory_iterator(client.config() + "/db/sign")) {
    if (!item.is_directory() && !IsSignature(item.path().filename().string())) {
      left.push_back(name + ", signatures: " + item.path().filename().string());
    }
  }
  return left;
}

std::set<Fingerprint> Oracle::Contents(const std::vector<std::string>& roots) {
  for (const auto& item : fs::recursive_directory_iterator(server_.Data() + "/contents")) {
    const std::string path = item.path().string();
    if (item.is_directory() || !stored_.insert(path).second) continue;
    in_store_.insert(FingerprintOf(ReadFile(ustring(path))));
  }
  Query("SELECT bytes FROM small_contents;", [&](sqlite3_stmt* row) {
    const void* const bytes = sqlite3_column_blob(row, 0);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, 0));
    in_store_.insert(FingerprintOf(std::string(static_cast<const char*>(bytes), size)));
  });
  std::set<Fingerprint> contents = in_store_;
  for (const std::string& root : roots) {
    for (const auto& item : fs::recursive_directory_iterator(root)) {
      if (!item.is_directory()) {
        contents.insert(FingerprintOf(ReadFile(ustring(item.path().string()))));
      }
    }
  }
  return contents;
}

}  // namespace tolven::test
