#include "client/event-db-schema.h"

namespace tolven::event_db {

// Runs at each start, so each statement leaves alone what is there. `version` is written once and
// read by nothing. The transaction is a writing one from its start: one that reads first fails at
// once when another connection, as that of a session that is just being replaced, writes meanwhile.
//
// The trigger's UPDATE only carries the call: remove_signature() answers 0, which is no row's id.
// So a row and its signature go together, whichever statement deletes the row.
const char kSchema[] = R"sql(
PRAGMA journal_mode = WAL;PRAGMA synchronous = NORMAL;BEGIN IMMEDIATE;
CREATE TABLE IF NOT EXISTS event_table (
  id integer primary key,
  fileType integer NOT NULL,
  isExist integer NOT NULL,
  syncID NUMERIC NOT NULL,
  maxSyncID NUMERIC NOT NULL,
  fileSize NUMERIC NOT NULL,
  fileModTime NUMERIC NOT NULL,
  localFileModTime NUMERIC NOT NULL,
  fileCheckSum text NOT NULL,
  path text unique NOT NULL,
  macHash text NOT NULL DEFAULT '',
  inode INTEGER NOT NULL DEFAULT 0,
  execBit INTEGER NOT NULL DEFAULT 0,
  serverExecBit INTEGER NOT NULL DEFAULT 0,
  unixUid INTEGER NOT NULL DEFAULT 0,
  unixGid INTEGER NOT NULL DEFAULT 0,
  unixMode INTEGER NOT NULL DEFAULT 0,
  unixHash TEXT NOT NULL DEFAULT '',
  serverUnixUid INTEGER NOT NULL DEFAULT 0,
  serverUnixGid INTEGER NOT NULL DEFAULT 0,
  serverUnixMode INTEGER NOT NULL DEFAULT 0,
  aclAttribute TEXT NOT NULL DEFAULT '',
  serverAclAttribute TEXT NOT NULL DEFAULT '',
  aclHash TEXT NOT NULL DEFAULT '',
  serverAclHash TEXT NOT NULL DEFAULT '',
  sharePrivDisabled INTEGER NOT NULL DEFAULT 0,
  sharePrivDenyList TEXT NOT NULL DEFAULT '',
  sharePrivRoList TEXT NOT NULL DEFAULT '',
  sharePrivRwList TEXT NOT NULL DEFAULT '',
  sharePrivHash TEXT NOT NULL DEFAULT '',
  serverSharePrivDisabled INTEGER NOT NULL DEFAULT 0,
  serverSharePrivDenyList TEXT NOT NULL DEFAULT '',
  serverSharePrivRoList TEXT NOT NULL DEFAULT '',
  serverSharePrivRwList TEXT NOT NULL DEFAULT '',
  serverSharePrivHash TEXT NOT NULL DEFAULT '');
CREATE TABLE IF NOT EXISTS config_table (
  key VARCHAR PRIMARY KEY ON CONFLICT IGNORE,
  value VARCHAR NOT NULL);
INSERT or IGNORE into config_table VALUES ('sync_id', '0');
INSERT or IGNORE into config_table VALUES ('version', 15);
INSERT or IGNORE into config_table VALUES ('uid', 0);
INSERT or IGNORE into config_table VALUES ('group', '');
INSERT or IGNORE into config_table VALUES ('is_admin', '');
CREATE TABLE IF NOT EXISTS server_filter_table (
  id integer primary key,
  isExist integer NOT NULL,
  fileType integer NOT NULL,
  filterType integer NOT NULL,
  syncID NUMERIC NOT NULL,
  maxSyncID NUMERIC NOT NULL,
  name TEXT NOT NULL,
  fileSize NUMERIC NOT NULL,
  fileModTime NUMERIC NOT NULL,
  fileCheckSum text NOT NULL,
  path text unique NOT NULL,
  macHash text NOT NULL DEFAULT '',
  execBit INTEGER NOT NULL DEFAULT 0,
  unixUid INTEGER NOT NULL DEFAULT 0,
  unixGid INTEGER NOT NULL DEFAULT 0,
  unixMode INTEGER NOT NULL DEFAULT 0,
  inode INTEGER NOT NULL DEFAULT 0,
  aclAttribute TEXT NOT NULL DEFAULT '',
  aclHash TEXT NOT NULL DEFAULT '',
  sharePrivDisabled INTEGER NOT NULL DEFAULT 0,
  sharePrivDenyList TEXT NOT NULL DEFAULT '',
  sharePrivRoList TEXT NOT NULL DEFAULT '',
  sharePrivRwList TEXT NOT NULL DEFAULT '',
  sharePrivHash TEXT NOT NULL DEFAULT '');
CREATE TABLE IF NOT EXISTS local_filter_table (
  fileType integer NOT NULL,
  isExist integer NOT NULL,
  filterType integer NOT NULL,
  syncID NUMERIC NOT NULL,
  maxSyncID NUMERIC NOT NULL,
  name TEXT NOT NULL,
  fileSize INTEGER,
  fileModTime NUMERIC NOT NULL,
  fileCheckSum text NOT NULL,
  path TEXT UNIQUE NOT NULL,
  macHash text NOT NULL DEFAULT '',
  execBit INTEGER,
  unixUid INTEGER,
  unixGid INTEGER,
  unixMode INTEGER,
  inode INTEGER NOT NULL DEFAULT 0,
  aclAttribute TEXT NOT NULL DEFAULT '',
  aclHash TEXT NOT NULL DEFAULT '',
  sharePrivDisabled INTEGER NOT NULL DEFAULT 0,
  sharePrivDenyList TEXT NOT NULL DEFAULT '',
  sharePrivRoList TEXT NOT NULL DEFAULT '',
  sharePrivRwList TEXT NOT NULL DEFAULT '',
  sharePrivHash TEXT NOT NULL DEFAULT '');
CREATE TABLE IF NOT EXISTS recycle_bin_table (
  id integer primary key,
  path text unique NOT NULL,
  fileSize NUMERIC NOT NULL,
  fileCheckSum text NOT NULL,
  macHash text default NULL,
  time NUMERIC NOT NULL);
CREATE INDEX IF NOT EXISTS event_table_syncID_idx on event_table(syncID);
CREATE INDEX IF NOT EXISTS event_table_maxSyncID_idx on event_table(maxSyncID);
CREATE INDEX IF NOT EXISTS event_table_path_idx on event_table(path);
CREATE INDEX IF NOT EXISTS event_table_fileCheckSum_idx on event_table(fileCheckSum);
CREATE INDEX IF NOT EXISTS event_table_macHash_idx on event_table(macHash);
CREATE INDEX IF NOT EXISTS event_table_isExist_idx on event_table(isExist);
CREATE INDEX IF NOT EXISTS recycle_bin_table_fileCheckSum_idx on recycle_bin_table(fileCheckSum);
CREATE INDEX IF NOT EXISTS recycle_bin_table_macHash_idx on recycle_bin_table(macHash);
CREATE INDEX IF NOT EXISTS recycle_bin_table_time_idx on recycle_bin_table(time);
CREATE INDEX IF NOT EXISTS server_filter_table_path_idx on server_filter_table(path);
CREATE INDEX IF NOT EXISTS local_filter_table_path_idx on local_filter_table(path);
CREATE TRIGGER IF NOT EXISTS event_table_delete_trigger AFTER DELETE ON event_table BEGIN UPDATE config_table SET value = '' WHERE rowid = remove_signature(OLD.id); END;
COMMIT;
)sql";

}  // namespace tolven::event_db
