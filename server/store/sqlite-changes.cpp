// What changes the metadata.
#include <algorithm>

#include "server/store/node-rows.h"
#include "server/store/sqlite-metadata.h"
#include "server/store/token.h"

namespace tolven::server {

namespace {

// Whether a new path may stand for what is there already.
bool HoldsTheSame(const Node& node, const Put& put) {
  if (node.is_dir != put.is_dir) return false;
  return node.is_dir ||
         (node.content.md4 == put.content.md4 && node.content.size == put.content.size);
}

Outcome CheckBase(Database& db, std::uint64_t view, const Put& put, bool live,
                  const Node& current) {
  if (put.base != 0 && !live) return Outcome::kNoBase;
  if (put.base != 0 && current.sync_id != put.base) return Outcome::kBaseChanged;
  if (live && current.is_dir && !put.is_dir) {
    std::uint64_t newest = 0;
    if (!NewestAt(db, view, put.path, newest)) return Outcome::kFailed;
    // Something below would go that the client has not seen.
    if (newest > std::max(put.base, put.max_id)) return Outcome::kBaseChanged;
  }
  if (put.base == 0 && live && !HoldsTheSame(current, put)) return Outcome::kConflict;
  return Outcome::kDone;
}

// What a change leaves as it was stays; all of it for what is new.
Node MakeVersion(const Put& put, bool live, const Node& current) {
  Node node;
  if (live) node = current;
  node.path = put.path;
  node.is_dir = put.is_dir;
  node.is_removed = false;
  if (!live) {
    node.uid = put.uid;
    node.acl = put.acl;
  }
  node.content = put.is_dir ? Content() : put.content;
  if (put.mtime) node.mtime = *put.mtime;
  if (put.exec_bit) node.exec_bit = *put.exec_bit;
  return node;
}

// What the change replaces, be it a whole folder, makes room for it.
Outcome CheckQuota(Database& db, std::uint64_t view, const Put& put) {
  Query row = db.Prepare("SELECT quota, used FROM views WHERE id = ?");
  if ((row << view).Step() != 1) return Outcome::kFailed;
  const std::uint64_t quota = row.Number(), used = row.Number();
  if (quota == 0 || put.is_dir) return Outcome::kDone;
  std::uint64_t freed = 0;
  if (!BytesAt(db, view, put.path, freed)) return Outcome::kFailed;
  return used - freed + put.content.size <= quota ? Outcome::kDone : Outcome::kQuota;
}

bool StoreBytes(Database& db, std::uint64_t content, const std::string& bytes) {
  return (db.Prepare("INSERT OR IGNORE INTO small_contents (content_id, bytes) VALUES (?, ?)")
          << content)
      .Bytes(bytes)
      .Run();
}

}  // namespace

Outcome SqliteMetadata::Change(const std::function<Outcome(Database&)>& change) {
  Outcome outcome = Outcome::kFailed;
  const bool durable = writer_.Run([&](Database& db) {
    outcome = change(db);
    return outcome == Outcome::kDone;
  });
  return outcome == Outcome::kDone && !durable ? Outcome::kFailed : outcome;
}

Outcome SqliteMetadata::PutNode(std::uint64_t view, const Put& put, Node& made) {
  return Change([&](Database& db) {
    Node current;
    const int found = FindNodeRow(db, view, put.path, current);
    if (found < 0) return Outcome::kFailed;
    const bool live = found == 1 && !current.is_removed;
    const Outcome base = CheckBase(db, view, put, live, current);
    if (base != Outcome::kDone) return base;
    // Who stores the same again may have another time for it.
    const bool is_new_time = live && !put.is_dir && put.mtime && *put.mtime != current.mtime;
    if (live && put.base == 0 && !is_new_time) {
      made = current;
      return Outcome::kDone;
    }
    if (const Outcome room = CheckQuota(db, view, put); room != Outcome::kDone) return room;
    NodeWriter writer(db, view, versions_);
    Outcome outcome = Outcome::kFailed;
    if (!writer.MakeParents(put.path, put.uid, outcome)) return outcome;
    if (live && current.is_dir && !put.is_dir && !writer.RemoveBelow(put.path)) {
      return Outcome::kFailed;
    }
    made = MakeVersion(put, live, current);
    const bool stored =
        writer.Store(made, live ? &current : nullptr) &&
        (put.is_dir || put.bytes == nullptr || StoreBytes(db, made.content.id, *put.bytes));
    return stored ? Outcome::kDone : Outcome::kFailed;
  });
}

Outcome SqliteMetadata::RemoveNode(std::uint64_t view, const std::string& path,
                                   std::uint64_t sync_id, std::uint64_t max_id, Node& removed) {
  return Change([&](Database& db) {
    Node current;
    const int found = FindNodeRow(db, view, path, current);
    if (found < 0 || path == "/") return Outcome::kFailed;
    if (found == 0 || current.is_removed) return Outcome::kNotFound;
    std::uint64_t newest = 0;
    if (current.is_dir && !NewestAt(db, view, path, newest)) return Outcome::kFailed;
    if (current.is_dir ? newest > max_id : current.sync_id != sync_id) return Outcome::kModified;
    NodeWriter writer(db, view, versions_);
    if (current.is_dir && !writer.RemoveBelow(path)) return Outcome::kFailed;
    removed = current;
    removed.is_removed = true;
    return writer.Store(removed, &current) ? Outcome::kDone : Outcome::kFailed;
  });
}

int SqliteMetadata::AddUser(User& user) {
  const Outcome outcome = Change([&](Database& db) {
    if (user.uid == 0) {
      Query free =
          db.Prepare("SELECT max(999, ifnull(max(uid), 0)) + 1 FROM users WHERE uid < 4294967295");
      if (free.Step() != 1) return Outcome::kFailed;
      user.uid = static_cast<std::uint32_t>(free.Number());
    }
    if (!(db.Prepare("INSERT INTO users (name, uid, is_admin) VALUES (?, ?, ?)")
          << user.name << user.uid << user.is_admin)
             .Run()) {
      return Outcome::kFailed;
    }
    user.id = db.last_id();
    for (const std::uint32_t gid : user.groups) {
      if (!(db.Prepare("INSERT OR IGNORE INTO user_groups (user_id, gid) VALUES (?, ?)")
            << user.id << gid)
               .Run()) {
        return Outcome::kFailed;
      }
    }
    return Outcome::kDone;
  });
  return outcome == Outcome::kDone ? 0 : -1;
}

int SqliteMetadata::NewSession(const std::string& name, std::string& token) {
  User user;
  if (FindUser(name, user) != 1) return -1;
  const std::string fresh = NewToken();
  if (fresh.empty()) return -1;
  const Outcome outcome = Change([&](Database& db) {
    return (db.Prepare("INSERT INTO sessions (token_hash, user_id) VALUES (?, ?)")
            << HashOfToken(fresh) << user.id)
                   .Run()
               ? Outcome::kDone
               : Outcome::kFailed;
  });
  if (outcome != Outcome::kDone) return -1;
  token = fresh;
  return 0;
}

int SqliteMetadata::AddView(View& view) {
  const Outcome outcome = Change([&](Database& db) {
    if (!(db.Prepare("INSERT INTO views (name, quota, read_only) VALUES (?, ?, ?)")
          << view.name << view.quota << view.read_only)
             .Run()) {
      return Outcome::kFailed;
    }
    view.id = db.last_id();
    Node root;
    root.path = "/";
    root.is_dir = true;
    return NodeWriter(db, view.id, versions_).Store(root, nullptr) ? Outcome::kDone
                                                                   : Outcome::kFailed;
  });
  return outcome == Outcome::kDone ? 0 : -1;
}

Outcome SqliteMetadata::SetAcl(std::uint64_t view, const std::string& path,
                               const std::string& acl) {
  return Change([&](Database& db) {
    Node current;
    const int found = FindNodeRow(db, view, path, current);
    if (found < 0) return Outcome::kFailed;
    if (found == 0 || current.is_removed) return Outcome::kNotFound;
    Node changed = current;
    changed.acl = acl;
    const std::uint64_t below = current.max_id;
    if (!NodeWriter(db, view, versions_).Store(changed, &current)) return Outcome::kFailed;
    return changed.max_id >= below ? Outcome::kDone : Outcome::kFailed;
  });
}

int SqliteMetadata::SetProfiles(std::uint64_t user, const std::vector<Profile>& profiles) {
  const Outcome outcome = Change([&](Database& db) {
    if (!(db.Prepare("DELETE FROM profiles WHERE user_id = ?") << user).Run()) {
      return Outcome::kFailed;
    }
    for (const Profile& profile : profiles) {
      if (!(db.Prepare("INSERT INTO profiles (user_id, name, md5, file) VALUES (?, ?, ?, ?)")
            << user << profile.name << profile.md5 << profile.file.str())
               .Run()) {
        return Outcome::kFailed;
      }
    }
    return Outcome::kDone;
  });
  return outcome == Outcome::kDone ? 0 : -1;
}

Outcome SqliteMetadata::Restore(std::uint64_t view, const std::string& path, std::uint64_t sync_id,
                                Node& made) {
  Node wanted, current;
  const int kept = FindVersion(view, path, sync_id, wanted);
  if (kept < 0) return Outcome::kFailed;
  if (kept == 0 || wanted.is_dir || wanted.is_removed) return Outcome::kNotFound;
  const int found = FindNode(view, path, current);
  if (found < 0) return Outcome::kFailed;
  if (found == 1 && !current.is_removed && current.is_dir) return Outcome::kConflict;
  Put put;
  put.path = path;
  put.base = found == 1 && !current.is_removed ? current.sync_id : 0;
  put.content = wanted.content;
  put.mtime = wanted.mtime;
  put.exec_bit = wanted.exec_bit;
  put.uid = wanted.uid;
  // What was hidden does not come back for all to see.
  if (found == 1 && !current.is_dir) put.acl = current.acl;
  return PutNode(view, put, made);
}

Outcome SqliteMetadata::DropBytes(const std::vector<std::uint64_t>& ids) {
  if (ids.empty()) return Outcome::kDone;
  return Change([&](Database& db) {
    for (const std::uint64_t id : ids) {
      if (!(db.Prepare("DELETE FROM small_contents WHERE content_id = ?") << id).Run()) {
        return Outcome::kFailed;
      }
    }
    return Outcome::kDone;
  });
}

int SqliteMetadata::ListUnusedBytes(bool remove, std::uint64_t& count) {
  {
    const MutexLock hold(reader_lock_);
    Query row = reader_.Prepare(
        "SELECT count(*) FROM small_contents s WHERE NOT EXISTS (SELECT 1 FROM versions v WHERE "
        "v.content_id = s.content_id)");
    if (row.Step() != 1) return -1;
    count = row.Number();
  }
  if (!remove || count == 0) return 0;
  const Outcome outcome = Change([](Database& db) {
    return db.Prepare(
                 "DELETE FROM small_contents WHERE NOT EXISTS (SELECT 1 FROM versions v WHERE "
                 "v.content_id = small_contents.content_id)")
                   .Run()
               ? Outcome::kDone
               : Outcome::kFailed;
  });
  return outcome == Outcome::kDone ? 0 : -1;
}

int SqliteMetadata::Check(std::vector<std::string>& problems) {
  const MutexLock hold(reader_lock_);
  const auto collect = [&](const char* sql, const char* text) REQUIRES(reader_lock_) {
    Query rows = reader_.Prepare(sql);
    int more = 0;
    while ((more = rows.Step()) == 1) problems.push_back(text + rows.Text());
    return more;
  };
  int failed = collect(
      "SELECT integrity_check FROM pragma_integrity_check WHERE integrity_check <> "
      "'ok'",
      "database: ");
  failed |= collect(
      "SELECT n.path FROM nodes n WHERE n.is_dir = 0 AND n.is_removed = 0 AND n.content_id IS NULL",
      "a file without content: ");
  failed |= collect(
      "SELECT n.path FROM nodes n JOIN views v ON v.id = n.view_id WHERE n.sync_id > v.last_number "
      "OR "
      "n.max_id > v.last_number OR n.max_id < n.sync_id",
      "numbers that cannot be: ");
  failed |= collect(
      "SELECT v.name FROM views v WHERE v.used <> (SELECT ifnull(sum(c.size), 0) FROM nodes n JOIN "
      "contents c ON c.id = n.content_id WHERE n.view_id = v.id AND n.is_removed = 0)",
      "used bytes of view: ");
  return failed < 0 ? -1 : 0;
}

}  // namespace tolven::server
