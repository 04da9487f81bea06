#include "server/store/sqlite-schema.h"

namespace tolven::server {

// `nodes` holds the last version of every path that ever was, `versions` all versions of files that
// are kept, the last ones included. Numbers count on in each view by themselves. `small_contents`
// holds the bytes of contents that are not in the content store yet.
const char kServerSchema[] = R"sql(
BEGIN IMMEDIATE;
CREATE TABLE IF NOT EXISTS users (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  uid INTEGER NOT NULL,
  is_admin INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS user_groups (
  user_id INTEGER NOT NULL REFERENCES users(id),
  gid INTEGER NOT NULL,
  PRIMARY KEY (user_id, gid)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS sessions (
  token_hash TEXT PRIMARY KEY,
  user_id INTEGER NOT NULL REFERENCES users(id)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS profiles (
  user_id INTEGER NOT NULL REFERENCES users(id),
  name TEXT NOT NULL,
  md5 TEXT NOT NULL,
  file TEXT NOT NULL,
  PRIMARY KEY (user_id, name)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS views (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  quota INTEGER NOT NULL,
  read_only INTEGER NOT NULL,
  last_number INTEGER NOT NULL DEFAULT 0,
  used INTEGER NOT NULL DEFAULT 0);
CREATE TABLE IF NOT EXISTS contents (
  id INTEGER PRIMARY KEY,
  md4 TEXT NOT NULL,
  sha256 TEXT NOT NULL UNIQUE,
  size INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS small_contents (
  content_id INTEGER PRIMARY KEY REFERENCES contents(id),
  bytes BLOB NOT NULL);
CREATE INDEX IF NOT EXISTS contents_md4 ON contents(md4, size);
CREATE TABLE IF NOT EXISTS nodes (
  view_id INTEGER NOT NULL REFERENCES views(id),
  path TEXT NOT NULL,
  is_dir INTEGER NOT NULL,
  is_removed INTEGER NOT NULL,
  sync_id INTEGER NOT NULL,
  max_id INTEGER NOT NULL,
  content_id INTEGER REFERENCES contents(id),
  mtime INTEGER NOT NULL,
  exec_bit INTEGER NOT NULL,
  uid INTEGER NOT NULL,
  gid INTEGER NOT NULL,
  mode INTEGER NOT NULL,
  acl TEXT NOT NULL DEFAULT '',
  PRIMARY KEY (view_id, path)) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS nodes_number ON nodes(view_id, sync_id);
CREATE INDEX IF NOT EXISTS nodes_ruled ON nodes(view_id, path) WHERE acl <> '';
CREATE TABLE IF NOT EXISTS versions (
  view_id INTEGER NOT NULL,
  path TEXT NOT NULL,
  sync_id INTEGER NOT NULL,
  content_id INTEGER NOT NULL REFERENCES contents(id),
  mtime INTEGER NOT NULL,
  exec_bit INTEGER NOT NULL,
  uid INTEGER NOT NULL,
  PRIMARY KEY (view_id, path, sync_id)) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS versions_content ON versions(content_id);
COMMIT;
)sql";

}  // namespace tolven::server
