// What a session needs before it can run: its folders, its database, its lists. Everything here
// belongs to the control thread.
#pragma once

#include <cstdint>

#include "client/core/registry.h"
#include "protocol/object.h"
#include "ustring/ustring.h"

namespace tolven {

// Where a session keeps what is its own, below its configuration folder.
struct SessionPaths {
  explicit SessionPaths(const ustring& config_path);

  ustring signatures;  // "db/sign"
  ustring event_db;
  ustring black_list;
  ustring white_list;
  ustring force_hash_check_list;
};

// "sync-all" and "domain-only" have a mode of their own, everything else is the third.
PermissionMode GetPermissionMode(const ustring& text);

// A local folder without separators at its end; a root keeps its own.
ustring PlainSyncFolder(const ustring& folder);

// Where a path leads to through all links on it; the path itself when that cannot be told. A
// session on a link is one on the folder behind it, and stays there when the link changes.
ustring RealFolder(const ustring& folder);

// Builds the entry of a session from the request of the UI.
class SessionSetup {
 public:
  explicit SessionSetup(const PObject& params);

  // Makes the folders and opens and loads everything. 0, or -1 with `error` set when there is more
  // to tell than that it failed.
  int Run();

  const Registry::Entry& entry() const { return entry_; }
  // Whether the first rescan has to fetch what is missing here, and not to remove it there.
  bool merge() const { return merge_; }
  const ustring& error() const { return error_; }

 private:
  int CheckFolders();
  int OpenDatabase();
  int ProveRoot();
  int MakeWorkingDirectory();
  int RestoreFileStatus();
  int LoadLists();
  int LoadProfiles();

  Registry::Entry entry_;
  const SessionPaths paths_;
  bool merge_;
  ustring error_;
};

// The lists of a session as its files say now, each a new object; null when it could not be loaded.
shared_pointer<BlackList2> LoadBlackList(const ustring& path);
shared_pointer<WhiteListCpp> LoadWhiteList(const ustring& path);
shared_pointer<ForceHashCheckListCpp> LoadForceHashCheckList(const ustring& path);

}  // namespace tolven
