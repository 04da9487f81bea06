// Whether a path may take part in syncing, by the rules of the process, of the session and of its
// server. 0 when it may, else the code of filter/filter.h unless told otherwise.
#pragma once

#include "ustring/ustring.h"

namespace tolven {

class EventContext;

struct FilterHelper {
  // No filter's code: the node could not be looked at, so the event is to be tried again.
  static constexpr int kNotLookedAt = -2458;

  // The rules of the process, for the event's path, or kNotLookedAt.
  static int TestSystemFilter(const EventContext& context);
  // The rules of the session, for the event's path: the white list, which gives -262, then the
  // black lists.
  static int TestCommonFilter(const EventContext& context);
  // 0 or -1. Folders always pass.
  static int TestWhiteList(const EventContext& context);
  static int TestBlackListPath(const EventContext& context);
  // The black lists of session and server, for any path of the session.
  static int TestFilePath(const EventContext& context, const ustring& path,
                          const ustring& full_path);
  static int TestDirectory(const EventContext& context, const ustring& path,
                           const ustring& full_path);
  // 0, or -2457 for a node that can never be synced, or kNotLookedAt.
  static int CheckFileByPlatform(const ustring& full_path);
  // For a platform on which folders of some programs count as files: never here.
  static bool CheckIfiWorkZipFile(const ustring& path);
};

}  // namespace tolven
