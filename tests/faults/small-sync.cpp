#include "faults/small-sync.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <thread>

namespace tolven::test {

namespace {

namespace fs = std::filesystem;

constexpr char kOwnFolder[] = ".ZentrovaWorkingDirectory";

using Tree = std::map<std::string, std::string>;

// Large enough for a delta.
std::string Large(char kind, const std::string& middle = "") {
  std::string text;
  for (int i = 0; i < 3000; ++i) text += kind + std::to_string(i * 7919 % 10007);
  return text.insert(text.size() / 2, middle);
}

// What both users begin with.
Tree Before() {
  return {{"stays", "as it is"},
          {"edited-here", Large('h')},
          {"edited-there", Large('t')},
          {"gone-here", "removed here"},
          {"gone-there", "removed there"},
          {"moved", "moved here, and long enough to be known by its content"},
          {"left-here/one", "in a folder that is removed here"},
          {"left-there/sub/one", "in a folder that is removed there"},
          {"became-folder", "a file at first"},
          {"became-file/one", "in a folder at first"},
          {"both", "before both edit it"}};
}

// What both have in the end; a conflict's copy stands under its name without the time.
Tree After() {
  return {{"stays", "as it is"},
          {"edited-here", Large('h', "some more")},
          {"edited-there", Large('t', "something else")},
          {"moved-here/away", "moved here, and long enough to be known by its content"},
          {"new-here", "new here"},
          {"empty-here", ""},
          {"new-there/deep/file", "new there"},
          {"same-as-stays", "as it is"},
          {"became-folder/inside", "inside"},
          {"became-file", "a file by now"},
          {"both", "an edit there"},
          {"both_pc", "an edit here, which differs"}};
}

void Put(const std::string& path, const std::string& content) {
  fs::create_directories(fs::path(path).parent_path());
  WriteFile(ustring(path), content);
}

void ChangeHere(const std::string& root) {
  Put(root + "/edited-here", Large('h', "some more"));
  fs::remove(root + "/gone-here");
  fs::remove_all(root + "/left-here");
  fs::create_directory(root + "/moved-here");
  fs::rename(root + "/moved", root + "/moved-here/away");
  Put(root + "/new-here", "new here");
  Put(root + "/empty-here", "");
  fs::remove(root + "/became-folder");
  Put(root + "/became-folder/inside", "inside");
  Put(root + "/both", "an edit here, which differs");
}

void ChangeThere(const std::string& root) {
  Put(root + "/edited-there", Large('t', "something else"));
  fs::remove(root + "/gone-there");
  fs::remove_all(root + "/left-there");
  Put(root + "/new-there/deep/file", "new there");
  Put(root + "/same-as-stays", "as it is");
  fs::remove_all(root + "/became-file");
  Put(root + "/became-file", "a file by now");
  Put(root + "/both", "an edit there");
}

// Files only; a folder shows by what is in it, or as empty.
Tree ReadRoot(const std::string& root) {
  Tree tree;
  std::error_code error;
  for (fs::recursive_directory_iterator at(root, error), end; !error && at != end;
       at.increment(error)) {
    if (at->path().filename() == kOwnFolder) {
      at.disable_recursion_pending();
      continue;
    }
    std::string name = at->path().string().substr(root.size() + 1);
    if (at->is_directory(error)) {
      if (fs::is_empty(at->path(), error)) tree[name] = "<empty folder>";
      continue;
    }
    const std::size_t conflict = name.find("_pc_");
    if (conflict != std::string::npos) name.resize(conflict + 3);
    // A second copy of one conflict is one too many.
    while (!tree.emplace(name, ReadFile(ustring(at->path().string()))).second) name += "'";
  }
  return tree;
}

// Past whatever stands in the way of the engine's own look at its databases.
bool Query(const std::string& file, const std::string& sql,
           const std::function<void(sqlite3_stmt*)>& each) {
  sqlite3* db = nullptr;
  sqlite3_stmt* row = nullptr;
  bool ok = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, "unix") == SQLITE_OK;
  if (ok) {
    sqlite3_busy_timeout(db, 10'000);
    ok = sqlite3_prepare_v2(db, sql.c_str(), -1, &row, nullptr) == SQLITE_OK;
  }
  int step = SQLITE_DONE;
  while (ok && (step = sqlite3_step(row)) == SQLITE_ROW) each(row);
  sqlite3_finalize(row);
  sqlite3_close(db);
  return ok && step == SQLITE_DONE;
}

std::string Text(sqlite3_stmt* row, int column) {
  const unsigned char* const text = sqlite3_column_text(row, column);
  return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

std::uint64_t Number(sqlite3_stmt* row, int column) {
  return static_cast<std::uint64_t>(sqlite3_column_int64(row, column));
}

std::string Describe(sqlite3_stmt* row) {
  return (Number(row, 1) != 0 ? "<dir>" : Text(row, 2)) + " #" + Text(row, 3);
}

void Compare(const std::map<std::string, std::string>& got,
             const std::map<std::string, std::string>& wanted, const std::string& what,
             std::vector<std::string>& differences) {
  const auto tell = [&](const std::string& path, const char* problem) {
    differences.push_back(what + " '" + path + "' " + problem);
  };
  for (const auto& [path, content] : wanted) {
    const auto found = got.find(path);
    if (found == got.end()) {
      tell(path, "is missing");
    } else if (found->second != content) {
      tell(path, "is different");
    }
  }
  for (const auto& [path, content] : got) {
    if (!wanted.contains(path)) tell(path, "is too much");
  }
}

void MakeConfig(const std::string& folder) {
  const std::string version = "[Version]\nmajor = 1\nminor = 0\n";
  fs::create_directories(folder + "/conf");
  WriteFile(ustring(folder + "/conf/blacklist.filter"), version);
  WriteFile(ustring(folder + "/conf/force-hash-check-list.filter"), version);
  WriteFile(ustring(folder + "/conf/whitelist.filter"), version + "[File]\nwhite_ext = \"*\"\n");
}

// With times and modes.
void CopyTree(const std::string& from, const std::string& to) {
  const std::string command = "cp -a '" + from + "' '" + to + "'";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

void AwaitTree(const std::string& root, const Tree& tree) {
  while (ReadRoot(root) != tree) std::this_thread::yield();
}

std::uint64_t StoredNumber(const Place& place) {
  std::uint64_t number = 0;
  (void)Query(place.config + "/db/event-db.sqlite",
              "SELECT value FROM config_table WHERE key = 'sync_id';",
              [&](sqlite3_stmt* row) { number = Number(row, 0); });
  return number;
}

std::uint64_t LastNumber(const ServerProcess& server) {
  std::uint64_t number = 0;
  (void)Query(server.Data() + "/metadata.sqlite", "SELECT last_number FROM views;",
              [&](sqlite3_stmt* row) { number = Number(row, 0); });
  return number;
}

// Until the session's records tell of the files as they are in the folder, and it has heard of all
// that the server has.
void AwaitRecords(const ServerProcess& server, const Place& place) {
  Tree wanted;
  for (const auto& [path, content] : ReadRoot(place.root)) {
    wanted["/" + path] = std::to_string(content.size());
  }
  Tree records;
  do {
    std::this_thread::yield();
    records.clear();
    (void)Query(place.config + "/db/event-db.sqlite",
                "SELECT path, fileSize FROM event_table WHERE isExist = 1 AND fileType = 0;",
                [&](sqlite3_stmt* row) { records[Text(row, 0)] = Text(row, 1); });
  } while (records != wanted || StoredNumber(place) != LastNumber(server));
}

}  // namespace

SmallSync::SmallSync(Engine& engine)
    : place_{folder_.path() + "/root", folder_.path() + "/config"} {
  const Place other{folder_.path() + "/other", folder_.path() + "/other-config"};
  for (const Place& place : {place_, other}) {
    fs::create_directory(place.root);
    MakeConfig(place.config);
  }
  ServerProcess server;
  const Peer peer{server.port, server.token};
  const Tree before = Before();
  for (const auto& [path, content] : before) Put(place_.root + "/" + path, content);
  EXPECT_TRUE(engine.Start(peer, place_));
  AwaitRecords(server, place_);
  EXPECT_TRUE(engine.Start(peer, other));
  AwaitTree(other.root, before);
  AwaitRecords(server, other);
  engine.Stop();
  ChangeThere(other.root);
  EXPECT_TRUE(engine.Start(peer, other));
  AwaitRecords(server, other);
  engine.Stop();
  ChangeHere(place_.root);
  server.Stop();
  server_ = {folder_.path() + "/server", server.token};
  CopyTree(server.Data(), server_.data);
}

SmallSync::Run::Run(const SmallSync& sync)
    : place_{folder_.path() + "/root", folder_.path() + "/config"}, server_(sync.server_) {
  CopyTree(sync.place_.root, place_.root);
  CopyTree(sync.place_.config, place_.config);
}

SmallSync::Run::Listing SmallSync::Run::View() const {
  Listing view;
  (void)Query(server_.Data() + "/metadata.sqlite",
              "SELECT path, is_dir, md4, sync_id FROM nodes LEFT JOIN contents ON contents.id = "
              "content_id WHERE is_removed = 0 AND path <> '/';",
              [&](sqlite3_stmt* row) { view[Text(row, 0)] = Describe(row); });
  return view;
}

SmallSync::Run::Listing SmallSync::Run::Records() const {
  Listing records;
  const std::string file = place_.config + "/db/event-db.sqlite";
  (void)Query(file,
              "SELECT path, fileType, fileCheckSum, syncID FROM event_table WHERE isExist = 1 AND "
              "path <> '/';",
              [&](sqlite3_stmt* row) { records[Text(row, 0)] = Describe(row); });
  for (const char* table : {"server_filter_table", "local_filter_table"}) {
    (void)Query(file, std::string("SELECT path FROM ") + table + ";",
                [&](sqlite3_stmt* row) { records[Text(row, 0)] = std::string("in ") + table; });
  }
  return records;
}

std::vector<std::string> SmallSync::Run::Differences() const {
  std::vector<std::string> differences;
  Compare(ReadRoot(place_.root), After(), "folder:", differences);
  const Listing view = View();
  Compare(Records(), view, "records against view:", differences);
  Listing paths, in_folder;
  for (const auto& [path, number] : view) paths[path];
  std::error_code error;
  for (fs::recursive_directory_iterator at(place_.root, error), end; !error && at != end;
       at.increment(error)) {
    if (at->path().filename() == kOwnFolder) {
      at.disable_recursion_pending();
    } else {
      in_folder[at->path().string().substr(place_.root.size())];
    }
  }
  Compare(in_folder, paths, "folder against view:", differences);
  const std::uint64_t stored = StoredNumber(place_), last = LastNumber(server_);
  if (stored != last) {
    differences.push_back("up to " + std::to_string(stored) + " of " + std::to_string(last));
  }
  return differences;
}

std::vector<std::string> SmallSync::Run::LeftOvers() const {
  std::vector<std::string> left;
  const std::set<std::string> own{"#ZentRecycle", "#RootId"};
  std::error_code error;
  for (const auto& item : fs::directory_iterator(place_.root + "/" + kOwnFolder, error)) {
    const std::string name = item.path().filename().string();
    if (!own.contains(name)) left.push_back("in the working directory: " + name);
  }
  for (const auto& item : fs::recursive_directory_iterator(place_.config + "/db/sign", error)) {
    const std::string name = item.path().filename().string();
    if (!item.is_directory() && (name.size() != 3 || name[0] != '.')) left.push_back(name);
  }
  return left;
}

}  // namespace tolven::test
