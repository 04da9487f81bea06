#include "server/store/node-rows.h"

#include <vector>

namespace tolven::server {

namespace {

std::int64_t SizeOf(const Node& node) {
  return node.is_dir || node.is_removed ? 0 : static_cast<std::int64_t>(node.content.size);
}

}  // namespace

Node ReadNode(Query& row) {
  Node node;
  node.path = row.Text();
  node.is_dir = row.Number() != 0;
  node.is_removed = row.Number() != 0;
  node.sync_id = row.Number();
  node.max_id = row.Number();
  node.mtime = static_cast<std::uint32_t>(row.Number());
  node.exec_bit = row.Number() != 0;
  node.uid = static_cast<std::uint32_t>(row.Number());
  node.gid = static_cast<std::uint32_t>(row.Number());
  node.mode = static_cast<std::uint32_t>(row.Number());
  node.acl = row.Text();
  node.content.id = row.Number();
  node.content.size = row.Number();
  node.content.md4 = row.Text();
  node.content.sha256 = row.Text();
  return node;
}

int FindNodeRow(Database& db, std::uint64_t view, const std::string& path, Node& node) {
  static const std::string sql =
      std::string("SELECT") + kNodeColumns + "WHERE n.view_id = ? AND n.path = ?";
  Query row = db.Prepare(sql.c_str());
  const int found = (row << view << path).Step();
  if (found == 1) node = ReadNode(row);
  return found;
}

std::string FirstBelow(const std::string& folder) { return folder == "/" ? "/" : folder + "/"; }

// "0" comes right behind "/".
std::string EndBelow(const std::string& folder) { return folder == "/" ? "0" : folder + "0"; }

std::string ParentOf(const std::string& path) {
  if (path == "/") return {};
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool BytesAt(Database& db, std::uint64_t view, const std::string& path, std::uint64_t& bytes) {
  Query sum = db.Prepare(
      "SELECT ifnull(sum(c.size), 0) FROM nodes n JOIN contents c ON c.id = n.content_id WHERE "
      "n.view_id = ?1 AND n.path >= ?2 AND n.path < ?4 AND (n.path = ?2 OR n.path > ?3) AND "
      "n.is_removed = 0");
  if ((sum << view << path << FirstBelow(path) << EndBelow(path)).Step() != 1) return false;
  bytes = sum.Number();
  return true;
}

bool NewestAt(Database& db, std::uint64_t view, const std::string& path, std::uint64_t& number) {
  Query newest = db.Prepare(
      "SELECT ifnull(max(sync_id), 0) FROM nodes WHERE view_id = ?1 AND path >= ?2 AND path < ?4 "
      "AND (path = ?2 OR path > ?3) AND is_removed = 0");
  if ((newest << view << path << FirstBelow(path) << EndBelow(path)).Step() != 1) return false;
  number = newest.Number();
  return true;
}

bool NodeWriter::NextNumber(std::uint64_t& number) {
  if (!(db_.Prepare("UPDATE views SET last_number = last_number + 1 WHERE id = ?") << view_)
           .Run() ||
      db_.changes() != 1) {
    return false;
  }
  Query row = db_.Prepare("SELECT last_number FROM views WHERE id = ?");
  if ((row << view_).Step() != 1) return false;
  number = row.Number();
  return true;
}

bool NodeWriter::StoreContent(Content& content) {
  if (!(db_.Prepare("INSERT OR IGNORE INTO contents (md4, sha256, size) VALUES (?, ?, ?)")
        << content.md4 << content.sha256 << content.size)
           .Run()) {
    return false;
  }
  Query row = db_.Prepare("SELECT id FROM contents WHERE sha256 = ?");
  if ((row << content.sha256).Step() != 1) return false;
  content.id = row.Number();
  return true;
}

bool NodeWriter::StoreVersion(const Node& node) {
  if (!(db_.Prepare(
            "INSERT INTO versions (view_id, path, sync_id, content_id, mtime, exec_bit, uid) "
            "VALUES (?, ?, ?, ?, ?, ?, ?)")
        << view_ << node.path << node.sync_id << node.content.id << node.mtime << node.exec_bit
        << node.uid)
           .Run()) {
    return false;
  }
  return (db_.Prepare(
              "DELETE FROM versions WHERE view_id = ?1 AND path = ?2 AND sync_id <= (SELECT "
              "sync_id FROM versions WHERE view_id = ?1 AND path = ?2 ORDER BY sync_id DESC "
              "LIMIT 1 OFFSET ?3)")
          << view_ << node.path << static_cast<std::uint64_t>(versions_) + 1)
      .Run();
}

bool NodeWriter::TellRemovedBelow(Node& folder) {
  const std::string first = FirstBelow(folder.path), end = EndBelow(folder.path);
  if (!(db_.Prepare(
            "UPDATE nodes SET sync_id = told.number, max_id = told.number FROM (SELECT path, ?1 + "
            "row_number() OVER (ORDER BY path) AS number FROM nodes WHERE view_id = ?2 AND path > "
            "?3 AND path < ?4 AND is_removed = 1) AS told WHERE nodes.view_id = ?2 AND nodes.path "
            "= told.path")
        << folder.sync_id << view_ << first << end)
           .Run()) {
    return false;
  }
  const auto told = static_cast<std::uint64_t>(db_.changes());
  folder.max_id += told;
  return told == 0 ||
         (db_.Prepare("UPDATE views SET last_number = ? WHERE id = ?") << folder.max_id << view_)
             .Run();
}

bool NodeWriter::RaiseFolders(const std::string& path, std::uint64_t number) {
  for (std::string folder = ParentOf(path); !folder.empty(); folder = ParentOf(folder)) {
    if (!(db_.Prepare("UPDATE nodes SET max_id = ? WHERE view_id = ? AND path = ?")
          << number << view_ << folder)
             .Run()) {
      return false;
    }
  }
  return true;
}

bool NodeWriter::AddUsed(std::int64_t bytes) {
  return bytes == 0 ||
         (db_.Prepare("UPDATE views SET used = used + ? WHERE id = ?") << bytes << view_).Run();
}

bool NodeWriter::Store(Node& node, const Node* replaced) {
  if (!NextNumber(node.sync_id)) return false;
  node.max_id = node.sync_id;
  const bool new_folder =
      node.is_dir && !node.is_removed && (replaced == nullptr || !replaced->is_dir);
  if (new_folder && !TellRemovedBelow(node)) return false;
  const bool has_content = !node.is_dir && !node.is_removed;
  if (has_content && !StoreContent(node.content)) return false;
  if (!node.is_dir && !has_content) node.content = Content();
  Query row = db_.Prepare(
      "INSERT OR REPLACE INTO nodes (view_id, path, is_dir, is_removed, sync_id, max_id, "
      "content_id, mtime, exec_bit, uid, gid, mode, acl) VALUES (?, ?, ?, ?, ?, ?, nullif(?, 0), "
      "?, "
      "?, ?, ?, ?, ?)");
  row << view_ << node.path << node.is_dir << node.is_removed << node.sync_id << node.max_id
      << (has_content ? node.content.id : 0) << node.mtime << node.exec_bit << node.uid << node.gid
      << node.mode << node.acl;
  if (!row.Run()) return false;
  const std::int64_t freed = replaced == nullptr ? 0 : SizeOf(*replaced);
  return (!has_content || StoreVersion(node)) && AddUsed(SizeOf(node) - freed) &&
         RaiseFolders(node.path, node.max_id);
}

bool NodeWriter::RemoveBelow(const std::string& folder) {
  std::uint64_t bytes = 0;  // a folder itself has none
  return BytesAt(db_, view_, folder, bytes) &&
         (db_.Prepare(
              "UPDATE nodes SET is_removed = 1, content_id = NULL WHERE view_id = ? AND path > ? "
              "AND path < ?")
          << view_ << FirstBelow(folder) << EndBelow(folder))
             .Run() &&
         AddUsed(-static_cast<std::int64_t>(bytes));
}

bool NodeWriter::MakeParents(const std::string& path, std::uint32_t uid, Outcome& outcome) {
  std::vector<std::string> missing;
  for (std::string folder = ParentOf(path); !folder.empty(); folder = ParentOf(folder)) {
    Node node;
    const int found = FindNodeRow(db_, view_, folder, node);
    if (found < 0) return false;
    if (found == 0 || node.is_removed) {
      missing.push_back(folder);
      continue;
    }
    if (!node.is_dir) {
      outcome = Outcome::kConflict;
      return false;
    }
    break;
  }
  for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
    Node made;
    made.path = *folder;
    made.is_dir = true;
    made.uid = uid;
    if (!Store(made, nullptr)) return false;
  }
  return true;
}

}  // namespace tolven::server
