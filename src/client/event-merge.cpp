#include "client/event-merge.h"

#include "client/event-log.h"

namespace tolven {

namespace {

// Flags that outlive the event they arrived with.
constexpr uint32_t kSticky = Event::F_LOCAL_SUBDIR_RESCAN | Event::F_SERVER_SUBDIR_RESCAN |
                             Event::F_LOCAL_SUBDIR_RESCAN_STAT |
                             Event::F_SERVER_SUBDIR_RESCAN_STAT | Event::F_CONFLICT |
                             EVENT_F_FILE_TYPE_CONFLICT | Event::F_REPLACED_SERVER_EVENT;

EventMerge KeepOld(const EventAttribute& pending) { return {true, pending.mode}; }

EventMerge TakeNew(const EventAttribute& pending, const EventAttribute& arrival) {
  return {false, arrival.mode | (pending.mode & kSticky)};
}

// One side against the other on a file: a removal loses against anything, and two real changes
// leave the server's event, marked so that the handlers keep both versions.
EventMerge MergeSides(const EventAttribute& pending, const EventAttribute& arrival) {
  const bool old_is_server = pending.isServer();
  const EventAttribute& server = old_is_server ? pending : arrival;
  const EventAttribute& local = old_is_server ? arrival : pending;
  const bool local_wins = local.type != Event::EV_REMOVE && server.type == Event::EV_REMOVE;
  const bool both_changed = local.type != Event::EV_REMOVE && server.type != Event::EV_REMOVE;

  const bool keep_old = local_wins ? !old_is_server : old_is_server;
  EventMerge merge = keep_old ? KeepOld(pending) : TakeNew(pending, arrival);
  if (both_changed) merge.mode |= Event::F_CONFLICT;
  if (local_wins) merge.mode |= Event::F_REPLACED_SERVER_EVENT;
  return merge;
}

EventMerge MergeFile(const EventAttribute& pending, const EventAttribute& arrival) {
  if (pending.isServer() != arrival.isServer()) return MergeSides(pending, arrival);
  if (arrival.isServer() && arrival.syncID <= pending.syncID &&
      pending.syncID != kForcedDownloadSyncId) {
    return KeepOld(pending);
  }
  return TakeNew(pending, arrival);
}

EventMerge ChooseDirectory(const EventAttribute& pending, const EventAttribute& arrival) {
  if (!pending.isServer()) return TakeNew(pending, arrival);
  if (!arrival.isServer()) {
    EVENT_LOG_INFO("Server modify and then Local modify, do server event\n");
    return KeepOld(pending);
  }
  const bool newer = pending.syncID < arrival.syncID || pending.syncID == kForcedDownloadSyncId;
  return newer ? TakeNew(pending, arrival) : KeepOld(pending);
}

EventMerge MergeDirectory(const EventAttribute& pending, const EventAttribute& arrival) {
  EventMerge merge = ChooseDirectory(pending, arrival);
  // A directory that was deleted and came back may hold anything.
  if (!merge.keep_old && pending.type == Event::EV_REMOVE && arrival.type != Event::EV_REMOVE) {
    if (pending.isServer()) {
      merge.mode |= Event::F_SERVER_SUBDIR_RESCAN;
      EVENT_LOG_DEBUG("Mark node to be ServerSubDirRescan(pre-event dir delete) [%s].\n",
                      arrival.path());
    } else {
      merge.mode |= Event::F_LOCAL_SUBDIR_RESCAN;
      EVENT_LOG_DEBUG("Mark node to be LocalSubDirRescan(pre-event dir delete) [%s].\n",
                      arrival.path());
    }
  }
  return merge;
}

}  // namespace

EventMerge MergeEvents(const EventAttribute& pending, const EventAttribute& arrival) {
  if (pending.type == Event::EV_EMPTY) return {false, arrival.mode};
  if (arrival.type == Event::EV_EMPTY) return KeepOld(pending);
  return (arrival.mode & Event::F_DIR) != 0 ? MergeDirectory(pending, arrival)
                                            : MergeFile(pending, arrival);
}

}  // namespace tolven
