// What handlers do with local files and folders. Any worker may call.
#pragma once

#include <atomic>
#include <functional>

#include "client/core/file.h"
#include "client/db-file-info.h"
#include "client/file-list.h"
#include "lib/file-op.h"
#include "ustring/ustring.h"

namespace tolven {

class EventContext;

struct FileHelper {
  enum WalkerOption {
    WALK_OPT_DFS = 1,        // all below, too
    WALK_OPT_EXT_INFO = 2,   // with times and sizes
    WALK_OPT_CUT_MTIME = 4,  // bit 0 of each time is cleared
    WALK_OPT_SKIP_UNREADABLE = 8,
  };
  // False ends the walk.
  using Walker = std::function<bool(const DIR_ENTRY& entry, const ustring& path)>;

  // Gives every entry of a folder of the session, with its full path, to `walker`. What the
  // session's black list blocks is told and not entered; links are not either. 0, also for a folder
  // that does not exist; -1 when aborted, or, without WALK_OPT_SKIP_UNREADABLE, when a folder
  // cannot be read.
  static int Walk(const ustring& root, const EventContext& context, const Walker& walker,
                  int options, const std::atomic<int>* abort_flag);

  // Takes an object out of its place at once, and then away for good, be it that a part of it stays
  // behind in `working_directory`: 0. -1: it is where it was. 1: `file` tells where it is now.
  // `is_to_stay`, asked when nobody finds it by its name any more, lets it go by 0, keeps it by 1
  // and has it put back by -1, which comes to 1 where its name is taken by then.
  static int RemoveByRename(File& file, const ustring& working_directory,
                            const std::function<int(const ustring& place)>& is_to_stay = {});

  // Whether the object is another one than the record tells, by kind, size and time; by content
  // where these cannot tell or the session wants it so.
  static bool LocallyModified(const EventContext& context, const File& file,
                              const DBFileInfo& db_info);
  // 1 when the session wants the content compared, 0, or -1 for the root.
  static int TestForceHash(const EventContext& context);
  // Whether a folder holds, at any depth, a file that has no record or is another one than its
  // record tells; or is no folder any more: 1, 0 (also for what does not exist), or -1 when aborted
  // or when it cannot be told. `path` is the folder's as events have it, `place` where it is now.
  // What is parked as a change of this side may be left out.
  enum class Parked { COUNTED, LEFT_OUT };
  static int HasLocalEdits(const EventContext& context, const ustring& path, const ustring& place,
                           const std::atomic<int>* abort_flag, Parked parked = Parked::COUNTED);

  // `hash` becomes the MD4 in hexadecimal. 0 or -1. `abort_flag` may be null.
  static int CalculateMd4FromFile(const ustring& path, ustring& hash,
                                  const std::atomic<int>* abort_flag);
  static ustring GetBaseName(const ustring& path);
  static void GetNameAndAttribute(const DIR_ENTRY& entry, const ustring& parent, ustring& name,
                                  FileList::Attribute& attribute);

  // For platforms with such attributes; 0 here.
  static int CreateMacAttrFile(const ustring& path, const ustring& attribute_path);
  static int UpdatePathInode(const EventContext& context, const ustring& path);
};

}  // namespace tolven
