#include "platform/tree-watcher-linux.h"

#include <sys/inotify.h>
#include <unistd.h>

#include "platform/errno-linux.h"

namespace tolven::platform {

namespace {

constexpr auto kSecondHalfWait = std::chrono::milliseconds(10);
constexpr std::size_t kBuffer = 64 * 1024;
constexpr int kBuffersPerRead = 16;
constexpr std::size_t kMostRecords = 200'000;

}  // namespace

TreeWatcher::TreeWatcher(const ustring& root, const ustring& skip_name)
    : watches_(root, skip_name, [this](const std::string& path) {
        Tell(WatchAction::kAdded, path);
        return !overflow_;
      }) {}

std::optional<TreeWatcher::Clock::time_point> TreeWatcher::Due() const {
  if (watches_.limit_reached() && !limit_told_) return Clock::time_point::min();
  std::optional<Clock::time_point> due = throttle_.NextDue();
  if (half_move_ && (!due || half_move_->until < *due)) due = half_move_->until;
  return due;
}

WatchResult TreeWatcher::End(WatchResult result) {
  ended_ = true;
  return result;
}

WatchResult TreeWatcher::Read(std::vector<WatchRecord>& records, Status& status) {
  records.clear();
  status = {};
  if (ended_) return WatchResult::kNothing;
  if (watches_.limit_reached() && !limit_told_) {
    limit_told_ = true;
    status = {ErrorKind::kTooMany, ENOSPC};
    return WatchResult::kLimit;
  }
  records_.clear();
  if (!ReadQueue(status)) return End(WatchResult::kFailed);
  if (overflow_) {
    overflow_ = false;
    half_move_.reset();
    throttle_.Clear();
    status = watches_.Restart();
    if (status.ok()) return WatchResult::kOverflow;
    gone_ = gone_ || status.is(ErrorKind::kNotFound) || status.is(ErrorKind::kNotDirectory);
    if (!gone_) return End(WatchResult::kFailed);
  }
  // What went before the root did is not told: it is no news of single files any more.
  if (gone_) return End(WatchResult::kGone);
  FlushDue();
  records.swap(records_);
  return records.empty() ? WatchResult::kNothing : WatchResult::kRecords;
}

bool TreeWatcher::ReadQueue(Status& status) {
  alignas(inotify_event) char buffer[kBuffer];
  for (int i = 0; i < kBuffersPerRead && !gone_ && !overflow_; ++i) {
    const ssize_t got = Retry([&] { return ::read(watches_.fd(), buffer, sizeof buffer); });
    if (got < 0 && errno == EAGAIN) {
      if (!half_move_) watches_.CaughtUp();
      return true;
    }
    if (got <= 0) {
      status = got < 0 ? LastError() : StatusFromErrno(EIO);
      return false;
    }
    for (const char* at = buffer; at < buffer + got;) {
      const auto& event = *reinterpret_cast<const inotify_event*>(at);
      at += sizeof event + event.len;
      Process(event, event.len == 0 ? std::string_view() : std::string_view(event.name));
    }
  }
  return true;
}

void TreeWatcher::Process(const inotify_event& event, std::string_view name) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) {
    overflow_ = true;
    return;
  }
  WatchedFolder* folder = watches_.Find(event.wd);
  if (folder == nullptr) return;  // a watch that was given up
  if (event.wd == watches_.root_wd() &&
      (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) != 0) {
    gone_ = true;
    return;
  }
  if ((event.mask & IN_IGNORED) != 0) return watches_.GiveUp(*folder);
  if (name.empty()) return;  // of the folder itself; its parent tells the same
  const bool second_half =
      half_move_ && (event.mask & IN_MOVED_TO) != 0 && event.cookie == half_move_->cookie;
  if (!second_half) {
    FlushHalfMove();
    folder = watches_.Find(event.wd);
    if (folder == nullptr) return;
  }
  ProcessNamed(*folder, event, name);
}

void TreeWatcher::ProcessNamed(WatchedFolder& folder, const inotify_event& event,
                               std::string_view name) {
  const bool is_folder = (event.mask & IN_ISDIR) != 0;
  if ((event.mask & IN_MOVED_FROM) != 0) return BeginMove(folder, event, name);
  if (folder.shallow && !is_folder) return;
  const std::string path = FolderWatches::PathOf(folder, name);
  if ((event.mask & IN_MOVED_TO) != 0) return EndMove(folder, event, name);
  if ((event.mask & IN_CREATE) != 0) {
    Tell(WatchAction::kAdded, path);
    if (is_folder) watches_.Arrive(folder, name);
  } else if ((event.mask & IN_DELETE) != 0) {
    throttle_.Forget(path);
    Tell(WatchAction::kRemoved, path);
    if (is_folder) watches_.Leave(folder, name);
  } else {
    ProcessWrite(event, path);
  }
}

void TreeWatcher::ProcessWrite(const inotify_event& event, const std::string& path) {
  if ((event.mask & IN_MODIFY) != 0) {
    if (throttle_.Admit(path, Clock::now())) Tell(WatchAction::kModified, path);
    return;
  }
  throttle_.Forget(path);
  Tell(WatchAction::kModified, path);
}

void TreeWatcher::BeginMove(const WatchedFolder& folder, const inotify_event& event,
                            std::string_view name) {
  throttle_.Forget(FolderWatches::PathOf(folder, name));
  half_move_ = HalfMove{event.cookie, event.wd, (event.mask & IN_ISDIR) != 0, std::string(name),
                        Clock::now() + kSecondHalfWait};
}

// The second half, or a name that came from outside.
void TreeWatcher::EndMove(WatchedFolder& to, const inotify_event& event, std::string_view name) {
  const bool is_folder = (event.mask & IN_ISDIR) != 0;
  WatchedFolder* const from = half_move_ ? watches_.Find(half_move_->wd) : nullptr;
  // With one end in the working directory it is no rename of what the tree holds.
  const bool pair = from != nullptr && !from->shallow && !watches_.IsSkipped(half_move_->name) &&
                    !watches_.IsSkipped(name);
  if (!pair) {
    const int to_wd = to.wd;
    FlushHalfMove();
    WatchedFolder* const folder = watches_.Find(to_wd);
    if (folder == nullptr) return;
    Tell(WatchAction::kAdded, FolderWatches::PathOf(*folder, name));
    if (is_folder) watches_.Arrive(*folder, name);
    return;
  }
  const std::string from_name = std::move(half_move_->name);
  half_move_.reset();
  Tell(WatchAction::kRenamedOld, FolderWatches::PathOf(*from, from_name));
  Tell(WatchAction::kRenamedNew, FolderWatches::PathOf(to, name));
  if (is_folder) watches_.Move(*from, from_name, to, name);
}

void TreeWatcher::FlushHalfMove() {
  if (!half_move_) return;
  const HalfMove half = std::move(*half_move_);
  half_move_.reset();
  WatchedFolder* const folder = watches_.Find(half.wd);
  if (folder == nullptr || (folder->shallow && !half.folder)) return;
  Tell(WatchAction::kRemoved, FolderWatches::PathOf(*folder, half.name));
  if (half.folder) watches_.Leave(*folder, half.name);
}

void TreeWatcher::FlushDue() {
  const Clock::time_point now = Clock::now();
  if (half_move_ && now >= half_move_->until) FlushHalfMove();
  std::vector<std::string> paths;
  throttle_.TakeDue(now, paths);
  for (const std::string& path : paths) Tell(WatchAction::kModified, path);
}

void TreeWatcher::Tell(WatchAction action, const std::string& path) {
  const auto number = static_cast<std::uint32_t>(action);
  // A write and the close after it are one change, as long as nobody has been told in between.
  if (action == WatchAction::kModified && !records_.empty() && records_.back().action == number &&
      records_.back().name.view() == path) {
    return;
  }
  if (records_.size() < kMostRecords) {
    records_.push_back({number, path});
  } else {
    overflow_ = true;  // a look at the whole tree costs less than so many single ones
  }
}

}  // namespace tolven::platform
