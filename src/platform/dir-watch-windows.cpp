#include <algorithm>
#include <array>

#include "platform/clock.h"
#include "platform/dir-watch.h"
#include "platform/mutex.h"
#include "platform/node-windows.h"
#include "platform/notify-records.h"
#include "platform/service-slot.h"

namespace tolven::platform {

namespace {

constexpr std::size_t kBufferSize = 16384;
constexpr DWORD kChanges = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                           FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION;
constexpr DWORD kMostInOneWait = MAXIMUM_WAIT_OBJECTS - 1;
// How long one group is waited for while others might have news.
constexpr DWORD kGroupSliceMs = 20;

// The system writes into `request_`, `buffer_` and `event_` as long as a request is under way, so a
// watch that ends cancels it and waits for its end.
class WindowsDirWatch : public DirWatch {
 public:
  WindowsDirWatch() : event_(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
  ~WindowsDirWatch() override {
    const MutexLock lock(mutex_);
    End();
  }

  Status Start(const ustring& root) {
    const MutexLock lock(mutex_);
    if (!event_.valid()) return StatusFromError(ERROR_NO_SYSTEM_RESOURCES);
    const PathArgument path(root);
    DWORD attributes = 0;
    const Status status = AttributesOf(path, attributes);
    if (!status.ok()) return status;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return StatusFromError(ERROR_DIRECTORY);
    root_ = path.text();
    // Nobody can remove or rename the root meanwhile.
    folder_.Reset(::CreateFileW(root_.c_str(), FILE_LIST_DIRECTORY,
                                FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr));
    return folder_.valid() ? Arm() : LastError();
  }

  WatchResult Read(std::vector<WatchRecord>& records, Status& status) override {
    const MutexLock lock(mutex_);
    status = {};
    if (failed_) return Fail(status_, status);
    if (!pending_ || ::WaitForSingleObject(event_.get(), 0) != WAIT_OBJECT_0) {
      return WatchResult::kNothing;
    }
    DWORD size = 0;
    if (::GetOverlappedResult(folder_.get(), &request_, &size, FALSE) == FALSE) {
      const DWORD code = ::GetLastError();
      if (code == ERROR_IO_INCOMPLETE) return WatchResult::kNothing;
      pending_ = false;
      if (code == ERROR_NOTIFY_ENUM_DIR) return GoOn(WatchResult::kOverflow);
      return Fail(StatusFromError(code), status);
    }
    pending_ = false;
    if (size == 0) return GoOn(WatchResult::kOverflow);
    const std::size_t before = records.size();
    const bool whole =
        DecodeNotifyRecords(buffer_.data(), std::min<std::size_t>(size, kBufferSize), records);
    if (!whole) return GoOn(WatchResult::kOverflow);
    return GoOn(records.size() > before ? WatchResult::kRecords : WatchResult::kNothing);
  }

  // What to wait for; null when there is nothing to wait for any more.
  HANDLE Waitable() {
    const MutexLock lock(mutex_);
    return pending_ || failed_ ? event_.get() : nullptr;
  }

 private:
  Status Arm() REQUIRES(mutex_) {
    ::ResetEvent(event_.get());
    request_ = OVERLAPPED{};
    request_.hEvent = event_.get();
    pending_ = ::ReadDirectoryChangesW(folder_.get(), buffer_.data(), kBufferSize, TRUE, kChanges,
                                       nullptr, &request_, nullptr) != FALSE;
    return pending_ ? Status{} : LastError();
  }

  // Arms the next request. When that fails, the next read says so, and waiting for it is short.
  WatchResult GoOn(WatchResult result) REQUIRES(mutex_) {
    status_ = Arm();
    if (!status_.ok()) {
      failed_ = true;
      ::SetEvent(event_.get());
    }
    return result;
  }

  WatchResult Fail(const Status& reason, Status& status) REQUIRES(mutex_) {
    failed_ = false;
    End();
    status = reason;
    const DWORD attributes = ::GetFileAttributesW(root_.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES) return WatchResult::kFailed;
    return LastError().is(ErrorKind::kNotFound) ? WatchResult::kGone : WatchResult::kFailed;
  }

  void End() REQUIRES(mutex_) {
    if (pending_) {
      ::CancelIoEx(folder_.get(), &request_);
      DWORD size = 0;
      (void)::GetOverlappedResult(folder_.get(), &request_, &size, TRUE);
      pending_ = false;
    }
    folder_.Reset();
  }

  Mutex mutex_;
  const ScopedHandle event_;
  std::wstring root_ GUARDED_BY(mutex_);
  ScopedHandle folder_ GUARDED_BY(mutex_);
  OVERLAPPED request_ GUARDED_BY(mutex_){};
  alignas(DWORD) std::array<unsigned char, kBufferSize> buffer_ GUARDED_BY(mutex_){};
  bool pending_ GUARDED_BY(mutex_) = false;
  bool failed_ GUARDED_BY(mutex_) = false;
  Status status_ GUARDED_BY(mutex_);
};

// The events of all watches with something to wait for, and where each stands in the caller's list.
struct Waitables {
  explicit Waitables(const std::vector<std::shared_ptr<DirWatch>>& watches) {
    for (std::size_t i = 0; i < watches.size(); ++i) {
      auto* const watch = dynamic_cast<WindowsDirWatch*>(watches[i].get());
      const HANDLE event = watch != nullptr ? watch->Waitable() : nullptr;
      if (event == nullptr) continue;
      events.push_back(event);
      places.push_back(static_cast<int>(i));
    }
  }

  std::vector<HANDLE> events;
  std::vector<int> places;
};

class WindowsDirWatchService : public DirWatchService {
 public:
  // What lies in folders that are left out elsewhere is told here, too: the system watches trees.
  Status Open(const ustring& root, const ustring&, std::shared_ptr<DirWatch>& watch) override {
    watch.reset();
    auto opened = std::make_shared<WindowsDirWatch>();
    const Status status = opened->Start(root);
    if (status.ok()) watch = std::move(opened);
    return status;
  }

  int Wait(const std::vector<std::shared_ptr<DirWatch>>& watches, int timeout_ms,
           Status& status) override {
    status = {};
    const Waitables waitables(watches);
    const std::int64_t end = clock().MonotonicMilliseconds() + timeout_ms;
    for (;;) {
      const DWORD left = TimeLeft(timeout_ms, end);
      if (waitables.events.empty()) {
        ::Sleep(left);
        return kNobody;
      }
      const int place = WaitOnce(waitables, left, status);
      if (place != kNobody || left == 0) return place;
    }
  }

  ustring LimitHint() override { return {}; }

 private:
  static constexpr int kNobody = -1;
  static constexpr int kFailure = -2;

  static DWORD TimeLeft(int timeout_ms, std::int64_t end) {
    if (timeout_ms < 0) return INFINITE;
    const std::int64_t left = end - clock().MonotonicMilliseconds();
    return static_cast<DWORD>(std::clamp<std::int64_t>(left, 0, timeout_ms));
  }

  // One wait for each group that the system can wait for at once; of several, each is short.
  static int WaitOnce(const Waitables& waitables, DWORD timeout, Status& status) {
    const std::size_t total = waitables.events.size();
    const DWORD slice = total > kMostInOneWait ? std::min(timeout, kGroupSliceMs) : timeout;
    for (std::size_t first = 0; first < total; first += kMostInOneWait) {
      const auto count = static_cast<DWORD>(std::min<std::size_t>(total - first, kMostInOneWait));
      const DWORD result =
          ::WaitForMultipleObjects(count, waitables.events.data() + first, FALSE, slice);
      if (result < WAIT_OBJECT_0 + count) return waitables.places[first + result];
      if (result == WAIT_TIMEOUT) continue;
      status = LastError();
      return kFailure;
    }
    return kNobody;
  }
};

using Slot = ServiceSlot<DirWatchService, WindowsDirWatchService>;

}  // namespace

DirWatchService& dir_watch() { return Slot::Get(); }
DirWatchService* SetDirWatch(DirWatchService* service) { return Slot::Set(service); }

}  // namespace tolven::platform
