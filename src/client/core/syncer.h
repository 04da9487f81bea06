// The task that pulls from the server. It goes round all sessions; for each it asks for the changes
// behind the session's stored number, queues them as events, waits until they were applied, and
// only then stores the new number: what was lost to a crash, a pause or a failure comes again.
// Beside that it keeps the session's profiles and the user's groups up to date, and lets a session
// that has caught up have the rescan it waits for. Contents are the workers' business.
//
// The task's own thread does all this. Pause, Resume, Stop and AddRescanEvent belong to the control
// thread. Results are codes of ErrorCodes unless told otherwise; messages go to "syncer_debug".
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <set>

#include "client/core/connection.h"
#include "client/core/registry.h"
#include "client/core/task.h"
#include "client/filtered-event.h"
#include "platform/mutex.h"
#include "protocol/object.h"
#include "protocol/stream.h"
#include "ustring/ustring.h"

namespace tolven {

class Syncer : public Task {
 public:
  static const ustring WORKING_DIR;

  // Applies the rules of a session that have changed: brings back what the old ones held back.
  using ReplaceFilterFunction = std::function<int(Registry::Entry& entry, bool merge)>;

  explicit Syncer(ReplaceFilterFunction replace_filter);

  int Pause() override;
  int Resume() override;
  int Stop() override;
  void DoTask() override;

  // Lets the session be rescanned once it has caught up with its server; with `merge` what is
  // missing here is fetched and not removed there.
  void AddRescanEvent(std::uint64_t session, bool merge) EXCLUDES(rescan_events_lock);

  const ConnectionInfo& GetConnectionInfo() const;

 private:
  friend struct SyncerPeer;  // lets tests take single steps

  struct Context {
    Registry::Entry entry;
    Connection connection;
    std::uint64_t sync_id = 0;  // the number that the pull in hand started from
  };
  // How often a batch came to an end with events that were not applied.
  struct UnappliedBatch {
    std::uint64_t sync_id = 0;
    int count = 0;
  };
  // A profile set that was asked for and still has another hash.
  struct AskedProfile {
    ustring hash;
    std::int64_t asked_at = 0;  // monotonic milliseconds
  };
  enum class WaitEnd { APPLIED, LEFT };

  int UpdateContext();
  // What the control thread has changed in the session meanwhile; false when it is gone.
  bool RefreshEntry();
  bool IsSessionReady();

  int PullEvent();
  int PullEventFromServer(PObject& response);
  int ProcessEvents(const PObject& response);
  int FinishCaughtUp();
  void QueueEvents(const PObject& event_list);
  // 0, or -1 when it was interrupted. `end` tells whether all events came to their end.
  int WaitForWorkers(WaitEnd& end);
  void WaitForLast(std::uint64_t session);
  int FinishBatch(std::uint64_t next);
  bool MayStore();
  void SendRescanEvent(std::uint64_t session) EXCLUDES(rescan_events_lock);
  bool AreAllUptodate();
  int HandleError(int code);

  int ProtoPullEvent(const PObject& request, PObject& response);
  int ProtoGetProfile(const PObject& request, PObject& response);
  int Exchange(const char* caller, const char* purpose, std::uint8_t command,
               const PObject& request, PObject& response);
  int RunProtocol(Channel& channel, std::uint8_t command, const PObject& request,
                  PObject& response);
  int Receive(Channel& channel, const PObject& request, PObject& response);
  void DropStrayFiles(const PObject& request, const PObject& response) const;
  int RequestChannel(Channel& channel, std::uint32_t& alive);
  int CheckBuild(const PObject& response) const;
  int RequestSSL(Channel& channel);

  int ReloadGroupSet(const PObject& response);
  void StoreUser(const PObject& response);
  int ReloadForGroups();
  int RescanACLEventDB();
  void ReloadLocalFilteredEvent(const ustring& path, FilteredEvent::FilterType type);

  int ReloadServerFilter(const PObject& response);
  bool IsProfileChanged(const PObject& response) const;
  int ReloadProfile();
  int UpdateProfile(const PObject& response);
  void CleanProfilefile(const PObject& response);

  const ReplaceFilterFunction replace_filter_;
  Context context;
  PStream stream;
  std::atomic<int> abort_flag{0};
  std::uint64_t times_sync_id_set_ = 0;  // when context.sync_id was read
  // What stood before the pull in hand queued its first event.
  std::uint64_t unapplied_before_ = 0;
  bool acl_rescan_ = false;  // the pull in hand queued what the user's new rights may show
  std::map<std::uint64_t, UnappliedBatch> unapplied_batches_;
  std::map<std::uint64_t, AskedProfile> asked_profiles_;
  std::set<std::uint64_t> uptodate_set;

  Mutex rescan_events_lock;
  std::map<std::uint64_t, bool> rescan_events GUARDED_BY(rescan_events_lock);
};

}  // namespace tolven
