#include "server/store/sqlite-metadata.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "server/store/node-rows.h"
#include "server/store/sqlite-schema.h"
#include "server/store/token.h"

namespace tolven::server {

namespace {

std::string Select(const char* rest) { return std::string("SELECT") + kNodeColumns + rest; }

View ReadView(Query& row) {
  View view;
  view.id = row.Number();
  view.name = row.Text();
  view.quota = row.Number();
  view.read_only = row.Number() != 0;
  view.last_number = row.Number();
  return view;
}

Content ReadContent(Query& row) {
  Content content;
  content.id = row.Number();
  content.size = row.Number();
  content.md4 = row.Text();
  content.sha256 = row.Text();
  return content;
}

int ReadAll(Query& rows, std::vector<Node>& out) {
  int more = 0;
  while ((more = rows.Step()) == 1) out.push_back(ReadNode(rows));
  return more;
}

}  // namespace

int SqliteMetadata::Open(const ustring& path) {
  const MutexLock hold(reader_lock_);
  if (!reader_.Open(path) || !reader_.Execute(kServerSchema)) return -1;
  return writer_.Open(path) ? 0 : -1;
}

// In one statement, since each statement is a transaction of its own.
int SqliteMetadata::FindUserBy(Query& row, User& user, std::string& token_hash) {
  const int found = row.Step();
  if (found != 1) return found;
  user = User();
  user.id = row.Number();
  user.name = row.Text();
  user.uid = static_cast<std::uint32_t>(row.Number());
  user.is_admin = row.Number() != 0;
  std::istringstream groups(row.Text());
  for (std::uint32_t gid = 0; groups >> gid;) user.groups.push_back(gid);
  token_hash = row.Text();
  return 1;
}

// The hash is looked up and compared once more in constant time: how far a guess is right can be
// told from neither.
int SqliteMetadata::FindSession(const std::string& token, User& user) {
  const std::string hash = HashOfToken(token);
  std::string known;
  User owner;
  const MutexLock hold(reader_lock_);
  Query row = reader_.Prepare(
      "SELECT u.id, u.name, u.uid, u.is_admin, (SELECT group_concat(gid, ' ') FROM user_groups "
      "WHERE user_id = u.id), s.token_hash FROM sessions s JOIN users u ON u.id = s.user_id WHERE "
      "s.token_hash = ?");
  const int found = FindUserBy(row << hash, owner, known);
  if (found != 1 || !EqualInConstantTime(known, hash)) return std::min(found, 0);
  user = std::move(owner);
  return 1;
}

int SqliteMetadata::FindUser(const std::string& name, User& user) {
  std::string none;
  const MutexLock hold(reader_lock_);
  Query row = reader_.Prepare(
      "SELECT id, name, uid, is_admin, (SELECT group_concat(gid, ' ') FROM user_groups WHERE "
      "user_id = id), '' FROM users WHERE name = ?");
  return FindUserBy(row << name, user, none);
}

int SqliteMetadata::FindView(std::uint64_t id, View& view) {
  const MutexLock hold(reader_lock_);
  Query row =
      reader_.Prepare("SELECT id, name, quota, read_only, last_number FROM views WHERE id = ?");
  const int found = (row << id).Step();
  if (found == 1) view = ReadView(row);
  return found;
}

int SqliteMetadata::FindViewByName(const std::string& name, View& view) {
  const MutexLock hold(reader_lock_);
  Query row =
      reader_.Prepare("SELECT id, name, quota, read_only, last_number FROM views WHERE name = ?");
  const int found = (row << name).Step();
  if (found == 1) view = ReadView(row);
  return found;
}

int SqliteMetadata::FindNode(std::uint64_t view, const std::string& path, Node& node) {
  const MutexLock hold(reader_lock_);
  return FindNodeRow(reader_, view, path, node);
}

int SqliteMetadata::FindVersion(std::uint64_t view, const std::string& path, std::uint64_t sync_id,
                                Node& node) {
  const MutexLock hold(reader_lock_);
  Node current;
  const int found = FindNodeRow(reader_, view, path, current);
  if (found == 1 && current.sync_id == sync_id) {
    node = current;
    return 1;
  }
  Query row = reader_.Prepare(
      "SELECT v.sync_id, v.mtime, v.exec_bit, v.uid, c.id, c.size, c.md4, c.sha256 FROM versions v "
      "JOIN contents c ON c.id = v.content_id WHERE v.view_id = ? AND v.path = ? AND v.sync_id = "
      "?");
  const int kept = (row << view << path << sync_id).Step();
  if (kept != 1) return kept;
  node = Node();
  node.path = path;
  node.sync_id = node.max_id = row.Number();
  node.mtime = static_cast<std::uint32_t>(row.Number());
  node.exec_bit = row.Number() != 0;
  node.uid = static_cast<std::uint32_t>(row.Number());
  node.content = ReadContent(row);
  return 1;
}

int SqliteMetadata::ListVersions(std::uint64_t view, const std::string& path,
                                 std::vector<Node>& out) {
  std::vector<std::uint64_t> numbers;
  {
    const MutexLock hold(reader_lock_);
    Query row = reader_.Prepare(
        "SELECT sync_id FROM versions WHERE view_id = ? AND path = ? ORDER BY sync_id DESC");
    row << view << path;
    int more = 0;
    while ((more = row.Step()) == 1) numbers.push_back(row.Number());
    if (more < 0) return -1;
  }
  for (const std::uint64_t number : numbers) {
    Node node;
    if (FindVersion(view, path, number, node) == 1) out.push_back(std::move(node));
  }
  return 0;
}

int SqliteMetadata::ListChanges(std::uint64_t view, const std::string& folder, std::uint64_t after,
                                std::size_t limit, std::vector<Node>& out) {
  static const std::string sql = Select(
      "WHERE n.view_id = ?1 AND n.sync_id > ?2 AND (n.path = ?3 OR (n.path > ?4 AND n.path < ?5)) "
      "ORDER BY n.sync_id LIMIT ?6");
  const MutexLock hold(reader_lock_);
  Query rows = reader_.Prepare(sql.c_str());
  rows << view << after << folder << FirstBelow(folder) << EndBelow(folder)
       << static_cast<std::uint64_t>(limit);
  return ReadAll(rows, out);
}

int SqliteMetadata::ListRuled(std::uint64_t view, const std::string& folder,
                              std::vector<Node>& out) {
  static const std::string sql = Select(
      "WHERE n.view_id = ?1 AND n.acl <> '' AND n.is_removed = 0 AND (n.path = ?2 OR (n.path > ?3 "
      "AND n.path < ?4)) ORDER BY n.path");
  const MutexLock hold(reader_lock_);
  Query rows = reader_.Prepare(sql.c_str());
  rows << view << folder << FirstBelow(folder) << EndBelow(folder);
  return ReadAll(rows, out);
}

int SqliteMetadata::ListProfiles(std::uint64_t user, std::vector<Profile>& out) {
  const MutexLock hold(reader_lock_);
  Query rows =
      reader_.Prepare("SELECT name, md5, file FROM profiles WHERE user_id = ? ORDER BY name");
  rows << user;
  int more = 0;
  while ((more = rows.Step()) == 1) {
    Profile& profile = out.emplace_back();
    profile.name = rows.Text();
    profile.md5 = rows.Text();
    profile.file = ustring(rows.Text());
  }
  return more;
}

int SqliteMetadata::ListKnownContents(std::uint64_t view, const std::string& md4,
                                      std::uint64_t size, const KnownContent& after,
                                      std::size_t limit, std::vector<KnownContent>& out) {
  const MutexLock hold(reader_lock_);
  Query rows = reader_.Prepare(
      "SELECT c.id, c.size, c.md4, c.sha256, v.path FROM contents c CROSS JOIN versions v ON "
      "v.content_id = c.id WHERE c.md4 = ? AND c.size = ? AND v.view_id = ? AND (c.id, v.path) > "
      "(?, ?) GROUP BY c.id, v.path ORDER BY c.id, v.path LIMIT ?");
  rows << md4 << size << view << after.content.id << after.path
       << static_cast<std::uint64_t>(limit);
  int more = 0;
  while ((more = rows.Step()) == 1) {
    KnownContent& known = out.emplace_back();
    known.content = ReadContent(rows);
    known.path = rows.Text();
  }
  return more;
}

int SqliteMetadata::FindBytes(const std::string& sha256, std::string& bytes) {
  const MutexLock hold(reader_lock_);
  Query row = reader_.Prepare(
      "SELECT s.bytes FROM contents c JOIN small_contents s ON s.content_id = c.id WHERE c.sha256 "
      "= "
      "?");
  const int found = (row << sha256).Step();
  if (found == 1) bytes = row.Bytes();
  return found;
}

std::uint64_t SqliteMetadata::LastSmallContent() {
  const MutexLock hold(reader_lock_);
  Query row = reader_.Prepare("SELECT max(content_id) FROM small_contents");
  return row.Step() == 1 ? row.Number() : 0;
}

int SqliteMetadata::ListSmallContents(std::size_t limit, std::vector<SmallContent>& out) {
  const MutexLock hold(reader_lock_);
  Query rows = reader_.Prepare(
      "SELECT c.id, c.size, c.md4, c.sha256, s.bytes FROM small_contents s JOIN contents c ON c.id "
      "= s.content_id ORDER BY s.content_id LIMIT ?");
  rows << static_cast<std::uint64_t>(limit);
  int more = 0;
  while ((more = rows.Step()) == 1) {
    SmallContent& small = out.emplace_back();
    small.content = ReadContent(rows);
    small.bytes = rows.Bytes();
  }
  return more;
}

int SqliteMetadata::UsedBytes(std::uint64_t view, const std::string& path, std::uint64_t& bytes) {
  const MutexLock hold(reader_lock_);
  if (path != "/") return BytesAt(reader_, view, path, bytes) ? 0 : -1;
  Query row = reader_.Prepare("SELECT used FROM views WHERE id = ?");
  if ((row << view).Step() != 1) return -1;
  bytes = row.Number();
  return 0;
}

int SqliteMetadata::ListUsers(std::vector<User>& out) {
  std::vector<std::string> names;
  {
    const MutexLock hold(reader_lock_);
    Query rows = reader_.Prepare("SELECT name FROM users ORDER BY name");
    int more = 0;
    while ((more = rows.Step()) == 1) names.push_back(rows.Text());
    if (more < 0) return -1;
  }
  for (const std::string& name : names) {
    if (FindUser(name, out.emplace_back()) != 1) return -1;
  }
  return 0;
}

int SqliteMetadata::ListViews(std::vector<View>& out) {
  const MutexLock hold(reader_lock_);
  Query rows =
      reader_.Prepare("SELECT id, name, quota, read_only, last_number FROM views ORDER BY id");
  int more = 0;
  while ((more = rows.Step()) == 1) out.push_back(ReadView(rows));
  return more;
}

int SqliteMetadata::ListContents(const std::function<void(const Content&)>& use) {
  const MutexLock hold(reader_lock_);
  Query rows = reader_.Prepare(
      "SELECT id, size, md4, sha256 FROM contents c WHERE EXISTS (SELECT 1 FROM versions v WHERE "
      "v.content_id = c.id)");
  int more = 0;
  while ((more = rows.Step()) == 1) {
    use(ReadContent(rows));
  }
  return more;
}

}  // namespace tolven::server
