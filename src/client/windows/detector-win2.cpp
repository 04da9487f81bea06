#include "client/windows/detector-win2.h"

#include <utility>

#include "client/core/registry.h"
#include "client/core/root-proof.h"
#include "client/core/session-layout.h"
#include "client/event-manager.h"
#include "client/windows/detector-log.h"
#include "lib/error-table.h"
#include "lib/file-op.h"
#include "lib/ui-ipc.h"
#include "platform/clock.h"
#include "platform/identity.h"

namespace tolven {

namespace {

// How long a wait lasts before the task looks at its state, and how many make a round.
constexpr int kWaitMilliseconds = 100;
constexpr int kWaitsOfARound = 10;
constexpr std::int64_t kLookMilliseconds = 2'000;
constexpr std::int64_t kTryAgainMilliseconds = 10'000;
constexpr std::int64_t kRescanMilliseconds = 600'000;

std::int64_t Now() { return platform::clock().MonotonicMilliseconds(); }

// The daemon's own data and the temporary folder never make events, even inside a synced folder.
std::vector<ustring> PrivateDirs() {
  ustring data;
  if (!platform::identity().LocalAppData(data).ok()) return {};
  return {data + "/Tolvenhub", data + "/Temp"};
}

std::uint64_t ConnectionOf(std::uint64_t sess_id) {
  Registry::Entry entry;
  return Registry::getInstance().Find(sess_id, entry) == 1 ? entry.conn_id : 0;
}

using Folder = std::optional<std::pair<std::uint64_t, std::uint64_t>>;

// Which folder a path leads to: false when that could not be told, none when it leads to none.
bool FindFolder(const ustring& path, Folder& id) {
  FILE_INFO info;
  id.reset();
  if (FSStat(path, info, false) != 0) return false;
  if (info.isExist && info.type == FT_DIR) id.emplace(info.volume_id, info.file_id);
  return true;
}

// Watches the folder that the path leads to: `id` is none when it was not one all the time.
platform::Status OpenWatch(const ustring& path, std::shared_ptr<platform::DirWatch>& watch,
                           Folder& id) {
  Folder before;
  const bool found = FindFolder(path, before);
  const platform::Status status = platform::dir_watch().Open(path, kWorkingDirectory, watch);
  if (!found || !FindFolder(path, id) || id != before) id.reset();
  return status;
}

// The UI is told once: a proof that fails has told it already.
void ReportLoss(std::uint64_t sess_id) {
  Registry::Entry entry;
  if (Registry::getInstance().Find(sess_id, entry) != 1) return;
  if (entry.root_proof != nullptr && !entry.root_proof->IsProved()) return;
  UI_IPC::ReportSessionErrorToUI(entry.conn_id, sess_id, ErrorCodes::ERR_WATCH_VOL_UMOUNT);
}

}  // namespace

Detector::Detector() : translator_(world_, PrivateDirs()) {}

Detector::~Detector() {
  const MutexLock hold(lock);
  for (const auto& [sess_id, info] : index) {
    DETECTOR_DEBUG("session #%llu (%s) down\n", sess_id, info.path);
  }
  index.clear();
}

int Detector::AddWatch(const ustring& path, std::uint64_t sess_id) {
  session_info info;
  info.path = path;
  const platform::Status status = OpenWatch(path, info.watch, info.root);
  if (!status.ok()) {
    DETECTOR_ERROR("CreateFile(%s): Error code: %d\n", path, status.code);
    return -1;
  }
  CreateWorkingDirectory(path);
  const MutexLock hold(lock);
  info.generation = ++last_generation_;
  index.try_emplace(sess_id, std::move(info));
  return 0;
}

void Detector::RemoveWatch(std::uint64_t sess_id) {
  session_info removed;  // closed after the lock was given back
  const MutexLock hold(lock);
  const auto found = index.find(sess_id);
  if (found == index.end()) return;
  removed = std::move(found->second);
  index.erase(found);
  translator_.Forget(sess_id);
}

void Detector::DoTask() {
  for (State state = GetState(); state != STOP; state = GetState()) {
    if (state == PAUSE) {
      WaitPaused();
      continue;
    }
    CareForWatches();
    // A wait that failed does not tell by which watch; reading them all does.
    if (WaitHandle() == 0) continue;
    ReadFromHandle();
    ReadFromBuffer();
  }
}

int Detector::WaitHandle() {
  Watches watches;
  {
    const MutexLock hold(lock);
    for (const auto& [sess_id, info] : index) {
      if (info.watch != nullptr) watches.push_back(info.watch);
    }
  }
  if (watches.empty()) {
    DETECTOR_DEBUG("No watch folder.\n");
    Wait(1);
    return 0;
  }
  for (int i = 0; i < kWaitsOfARound && GetState() == RUN; ++i) {
    platform::Status status;
    const int ready = platform::dir_watch().Wait(watches, kWaitMilliseconds, status);
    if (ready < -1) {
      if (!wait_failed_) DETECTOR_ERROR("WaitForMultipleObjects: Error Code: %d\n", status.code);
      wait_failed_ = true;
      Wait(1);
      return -1;
    }
    wait_failed_ = false;
    if (ready >= 0) {
      DETECTOR_DEBUG("Events at index %d\n", ready);
      return 1;
    }
  }
  DETECTOR_DEBUG("No incoming events\n");
  return 0;
}

void Detector::ReadFromHandle() {
  const MutexLock hold(lock);
  for (auto& [sess_id, info] : index) {
    if (info.watch != nullptr) ReadWatch(sess_id, info);
  }
}

void Detector::ReadWatch(std::uint64_t sess_id, session_info& info) {
  platform::Status status;
  switch (info.watch->Read(info.read_buffer, status)) {
    case platform::WatchResult::kRecords:
    case platform::WatchResult::kNothing:
      break;
    case platform::WatchResult::kOverflow:
      DETECTOR_INFO("Event queue overflow, rescan watch\n");
      info.read_buffer.clear();
      translator_.Forget(sess_id);
      EventManager::getInstance().IssueRescan(sess_id, "/", false);
      break;
    case platform::WatchResult::kFailed:
      DETECTOR_ERROR("GetOverlappedResult: Error Code %d\n", status.code);
      Lose(sess_id, info, status);
      break;
    case platform::WatchResult::kGone:
      Lose(sess_id, info, status);
      break;
    case platform::WatchResult::kLimit:
      BeginRescans(sess_id, info);
      break;
  }
}

// Whatever is gone with the folder was not removed by anybody.
void Detector::Lose(std::uint64_t sess_id, session_info& info, const platform::Status& status) {
  DETECTOR_ERROR("the watch of session %llu at '%s' ended: Error Code: %d\n", sess_id, info.path,
                 status.code);
  info.watch.reset();
  info.read_buffer.clear();
  info.next_try = Now() + kTryAgainMilliseconds;
  translator_.Forget(sess_id);
  ReportLoss(sess_id);
}

void Detector::BeginRescans(std::uint64_t sess_id, session_info& info) {
  DETECTOR_ERROR(
      "session %llu: not all folders of '%s' can be watched, the limit is reached (%s). The "
      "session is rescanned every 10 minutes.\n",
      sess_id, info.path, platform::dir_watch().LimitHint());
  UI_IPC::ReportSessionErrorToUI(ConnectionOf(sess_id), sess_id, ErrorCodes::ERR_SYS);
  info.next_rescan = Now() + kRescanMilliseconds;
  EventManager::getInstance().IssueRescan(sess_id, "/", false);
}

void Detector::ReadFromBuffer() {
  const MutexLock hold(lock);
  for (auto& [sess_id, info] : index) {
    if (!info.read_buffer.empty()) Translate(sess_id, info);
  }
}

void Detector::Translate(std::uint64_t sess_id, session_info& info) {
  bool is_all_known = true;
  for (const platform::WatchRecord& record : info.read_buffer) {
    Event event;
    if (translator_.Translate(event, sess_id, info.path, record) == 0) {
      PushEvent(event);
    } else {
      is_all_known = false;
    }
  }
  info.read_buffer.clear();
  // What could not be looked at because the folder is away is found by the rescan after its return.
  if (!is_all_known) (void)IsRootProved(sess_id, info.path);
}

void Detector::PushEvent(const Event& event) {
  EventManager& manager = EventManager::getInstance();
  for (const Event& part : SplitRename(event)) {
    manager.PushLocalEvent(part);
    // The content of a directory that is new or moved in is not reported.
    if (part.m_type == Event::EV_CREATE && part.isDir()) {
      manager.IssueExpand(part.m_sess_id, part.m_path);
    }
  }
}

void Detector::CheckRoots() {
  std::map<std::uint64_t, session_info> due;
  {
    const MutexLock hold(lock);
    const std::int64_t now = Now();
    for (auto& [sess_id, info] : index) {
      if (info.watch == nullptr || now < info.next_look) continue;
      info.next_look = now + kLookMilliseconds;
      session_info& seen = due[sess_id];
      seen.path = info.path;
      seen.root = info.root;
      seen.generation = info.generation;
    }
  }
  for (const auto& [sess_id, seen] : due) CheckRoot(sess_id, seen);
}

// Without the lock: a volume that is about to go may let a look wait.
void Detector::CheckRoot(std::uint64_t sess_id, const session_info& seen) {
  Folder now;
  if (!FindFolder(seen.path, now)) return;
  if (seen.root.has_value() && now == seen.root) {
    (void)IsRootProved(sess_id, seen.path);  // which may have failed meanwhile
    return;
  }
  {
    const MutexLock hold(lock);
    const auto found = index.find(sess_id);
    if (found == index.end() || found->second.generation != seen.generation) return;
    session_info& info = found->second;
    DETECTOR_INFO("session %llu: '%s' is another folder by now\n", sess_id, info.path);
    info.watch.reset();
    info.read_buffer.clear();
    info.next_try = Now();
    translator_.Forget(sess_id);
  }
  (void)IsRootProved(sess_id, seen.path);
}

void Detector::CareForWatches() {
  CheckRoots();
  struct Lost {
    std::uint64_t sess_id;
    ustring path;
    std::uint64_t generation;
  };
  std::vector<Lost> lost;
  {
    const MutexLock hold(lock);
    const std::int64_t now = Now();
    for (auto& [sess_id, info] : index) {
      if (info.watch == nullptr && now >= info.next_try) {
        info.next_try = now + kTryAgainMilliseconds;
        lost.push_back({sess_id, info.path, info.generation});
      }
      if (info.next_rescan >= 0 && now >= info.next_rescan) {
        info.next_rescan = now + kRescanMilliseconds;
        EventManager::getInstance().IssueRescan(sess_id, "/", false);
      }
    }
  }
  for (const Lost& watch : lost) Rearm(watch.sess_id, watch.path, watch.generation);
}

// Without the lock: to watch a large tree takes a while.
void Detector::Rearm(std::uint64_t sess_id, const ustring& path, std::uint64_t generation) {
  if (!IsRootProved(sess_id, path)) return;
  std::shared_ptr<platform::DirWatch> watch;
  Folder root;
  if (!OpenWatch(path, watch, root).ok()) return;
  if (!IsRootProved(sess_id, path)) return;  // it went away again meanwhile
  world_.RecreateWorkingDirectory(sess_id, path);
  const MutexLock hold(lock);
  const auto found = index.find(sess_id);
  if (found == index.end() || found->second.generation != generation) return;
  found->second.watch = std::move(watch);
  found->second.root = root;
  found->second.next_rescan = -1;
  DETECTOR_INFO("session %llu is watched again at '%s'\n", sess_id, path);
  EventManager::getInstance().IssueRescan(sess_id, "/", false);
}

}  // namespace tolven
