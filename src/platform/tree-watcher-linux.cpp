#include "platform/tree-watcher-linux.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "platform/errno-linux.h"

namespace tolven::platform {

namespace {

constexpr unsigned kLook = IN_ONLYDIR | IN_DONT_FOLLOW | IN_MASK_ADD;
constexpr unsigned kFolderMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB |
                                 IN_MOVED_FROM | IN_MOVED_TO | IN_EXCL_UNLINK | kLook;
constexpr unsigned kRootMask =
    (kFolderMask & ~unsigned{IN_DONT_FOLLOW}) | IN_DELETE_SELF | IN_MOVE_SELF;
// Of the working directory only the loss of its folders matters.
constexpr unsigned kShallowMask = IN_DELETE | IN_MOVED_FROM | kLook;
constexpr auto kSecondHalfWait = std::chrono::milliseconds(10);
constexpr std::size_t kBuffer = 64 * 1024;
constexpr int kBuffersPerRead = 16;
constexpr std::size_t kMostRecords = 200'000;
constexpr char kOnTheMove[] = "/";  // a name that no folder has

bool IsFolder(int dir, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
  struct stat st {};
  return ::fstatat(dir, entry.d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

bool IsDots(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

std::string WithoutEnd(std::string path) {
  while (!path.empty() && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

TreeWatcher::TreeWatcher(const ustring& root, const ustring& skip_name)
    : root_(WithoutEnd(root.str())), skip_name_(skip_name.str()) {}

TreeWatcher::~TreeWatcher() {
  if (fd_ >= 0) ::close(fd_);
}

Status TreeWatcher::Start() {
  Status status = OpenQueue();
  if (status.ok()) status = WatchRoot();
  return status;
}

// A queue that is opened again keeps its descriptor, on which another thread may be waiting.
Status TreeWatcher::OpenQueue() {
  const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) return LastError();
  if (fd_ < 0) {
    fd_ = fd;
    return {};
  }
  const int result = Retry([&] { return ::dup3(fd, fd_, O_CLOEXEC); });
  const Status status = result < 0 ? LastError() : Status{};
  ::close(fd);
  return status;
}

Status TreeWatcher::WatchRoot() {
  root_wd_ = ::inotify_add_watch(fd_, root_.empty() ? "/" : root_.c_str(), kRootMask);
  if (root_wd_ < 0) {
    return errno == ENOSPC ? Status{ErrorKind::kTooMany, ENOSPC} : LastError();
  }
  tree_.Insert(root_wd_, nullptr, "");
  ReadTree(root_wd_, false);
  return {};
}

std::optional<TreeWatcher::Clock::time_point> TreeWatcher::Due() const {
  if (limit_reached_ && !limit_told_) return Clock::time_point::min();
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
  if (limit_reached_ && !limit_told_) {
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
    tree_.Clear();
    missed_.clear();
    // All watches end with the old queue. Without a new one they go on in the old.
    (void)OpenQueue();
    status = WatchRoot();
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
    const ssize_t got = Retry([&] { return ::read(fd_, buffer, sizeof buffer); });
    if (got < 0 && errno == EAGAIN) {
      // The queue has caught up with the disk: what is still missed does not exist.
      if (!half_move_) missed_.clear();
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
  WatchedFolder* folder = tree_.Find(event.wd);
  if (folder == nullptr) return;  // a watch that was given up
  if (event.wd == root_wd_ &&
      (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) != 0) {
    gone_ = true;
    return;
  }
  if ((event.mask & IN_IGNORED) != 0) return GiveUp(*folder);
  if (name.empty()) return;  // of the folder itself; its parent tells the same
  const bool second_half =
      half_move_ && (event.mask & IN_MOVED_TO) != 0 && event.cookie == half_move_->cookie;
  if (!second_half) {
    FlushHalfMove();
    folder = tree_.Find(event.wd);
    if (folder == nullptr) return;
  }
  ProcessNamed(*folder, event, name);
}

void TreeWatcher::ProcessNamed(WatchedFolder& folder, const inotify_event& event,
                               std::string_view name) {
  const bool is_folder = (event.mask & IN_ISDIR) != 0;
  if ((event.mask & IN_MOVED_FROM) != 0) return BeginMove(folder, event, name);
  if (folder.shallow && !is_folder) return;
  const std::string path = RelativePath(folder, name);
  if ((event.mask & IN_MOVED_TO) != 0) return EndMove(folder, event, name);
  if ((event.mask & IN_CREATE) != 0) {
    Tell(WatchAction::kAdded, path);
    if (is_folder) Arrive(folder, name);
  } else if ((event.mask & IN_DELETE) != 0) {
    throttle_.Forget(path);
    Tell(WatchAction::kRemoved, path);
    if (is_folder) Leave(folder, name);
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
  throttle_.Forget(RelativePath(folder, name));
  half_move_ = HalfMove{event.cookie, event.wd, (event.mask & IN_ISDIR) != 0, std::string(name),
                        Clock::now() + kSecondHalfWait};
}

// The second half, or a name that came from outside.
void TreeWatcher::EndMove(WatchedFolder& to, const inotify_event& event, std::string_view name) {
  const bool is_folder = (event.mask & IN_ISDIR) != 0;
  WatchedFolder* const from = half_move_ ? tree_.Find(half_move_->wd) : nullptr;
  // With one end in the working directory it is no rename of what the tree holds.
  const bool pair =
      from != nullptr && !from->shallow && half_move_->name != skip_name_ && name != skip_name_;
  if (!pair) {
    const int to_wd = to.wd;
    FlushHalfMove();
    WatchedFolder* const folder = tree_.Find(to_wd);
    if (folder == nullptr) return;
    Tell(WatchAction::kAdded, RelativePath(*folder, name));
    if (is_folder) Arrive(*folder, name);
    return;
  }
  const std::string from_name = std::move(half_move_->name);
  half_move_.reset();
  Tell(WatchAction::kRenamedOld, RelativePath(*from, from_name));
  Tell(WatchAction::kRenamedNew, RelativePath(to, name));
  if (is_folder) MoveFolder(*from, from_name, to, name);
}

void TreeWatcher::MoveFolder(WatchedFolder& from, std::string_view from_name, WatchedFolder& to,
                             std::string_view to_name) {
  const int from_wd = from.wd;
  WatchedFolder* const moved = tree_.Child(from, from_name);
  const bool known = moved != nullptr && !WatchTree::IsWithin(to, *moved);
  if (known) {
    const int wd = moved->wd;
    WatchedFolder* const replaced = tree_.Child(to, to_name);
    if (replaced != nullptr && replaced != moved) GiveUp(*replaced);
    if (tree_.Find(wd) != nullptr) tree_.Move(*moved, to, to_name);
  }
  int wd = -1;
  const Attached attached = Attach(to, to_name, wd);
  if (attached == Attached::kKnown) ReadMissed(wd);
  if (attached != Attached::kNew) return;
  ReadTree(wd, true);
  // The names were used anew since: the old one may hold another folder by now.
  WatchedFolder* const again = tree_.Find(from_wd);
  if (known && again != nullptr) Arrive(*again, from_name);
}

void TreeWatcher::FlushHalfMove() {
  if (!half_move_) return;
  const HalfMove half = std::move(*half_move_);
  half_move_.reset();
  WatchedFolder* const folder = tree_.Find(half.wd);
  if (folder == nullptr || (folder->shallow && !half.folder)) return;
  Tell(WatchAction::kRemoved, RelativePath(*folder, half.name));
  if (half.folder) Leave(*folder, half.name);
}

void TreeWatcher::FlushDue() {
  const Clock::time_point now = Clock::now();
  if (half_move_ && now >= half_move_->until) FlushHalfMove();
  std::vector<std::string> paths;
  throttle_.TakeDue(now, paths);
  for (const std::string& path : paths) Tell(WatchAction::kModified, path);
}

// A folder has appeared under this name: watches it and tells what it holds already.
void TreeWatcher::Arrive(WatchedFolder& parent, std::string_view name) {
  int wd = -1;
  if (Attach(parent, name, wd) == Attached::kNew) ReadTree(wd, true);
}

void TreeWatcher::Leave(WatchedFolder& parent, std::string_view name) {
  WatchedFolder* const folder = tree_.Child(parent, name);
  if (folder != nullptr) GiveUp(*folder);
}

// Opens a watched folder by its path. The queue may be behind the disk, so that the path leads to
// another folder by now, or nowhere: then the folder is missed, and looked at when it has moved.
int TreeWatcher::OpenFolder(const WatchedFolder& folder) {
  const int nofollow = folder.wd == root_wd_ ? 0 : O_NOFOLLOW;
  const std::string path = FullPath(folder);
  const int fd =
      Retry([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | nofollow); });
  if (fd < 0) {
    NoteFailure(errno);
  } else {
    const int wd = AddWatch(fd, ".", kFolderMask);
    if (wd == folder.wd) return fd;
    if (wd >= 0 && tree_.Find(wd) == nullptr) (void)::inotify_rm_watch(fd_, wd);
    ::close(fd);
  }
  missed_.insert(folder.wd);
  return -1;
}

// kNew: what lies below the folder, `wd`, has not been looked at under this name. kNone: there is
// nothing to look at.
TreeWatcher::Attached TreeWatcher::Attach(WatchedFolder& parent, std::string_view name, int& wd) {
  const int dir = parent.shallow ? -1 : OpenFolder(parent);
  if (dir < 0) return Attached::kNone;
  const Attached attached = AttachAt(dir, parent, name, wd);
  ::close(dir);
  return attached;
}

// `dir` is the opened parent.
TreeWatcher::Attached TreeWatcher::AttachAt(int dir, WatchedFolder& parent, std::string_view name,
                                            int& wd) {
  const bool shallow = name == skip_name_;
  if (shallow && parent.parent != nullptr) return Attached::kNone;
  wd = AddWatch(dir, name, shallow ? kShallowMask : kFolderMask);
  if (wd < 0) return Attached::kNone;
  WatchedFolder* const known = tree_.Find(wd);
  WatchedFolder* const place = tree_.Child(parent, name);
  if (known != nullptr && known == place) return shallow ? Attached::kNone : Attached::kKnown;
  // One folder at two places, the one within the other, is a mount; it is watched where it was.
  if (known != nullptr && WatchTree::IsWithin(parent, *known)) return Attached::kNone;
  if (place != nullptr) {
    // Giving up a folder gives up what it holds, so the one to be moved out goes first.
    if (known != nullptr) tree_.Move(*known, *tree_.Find(root_wd_), kOnTheMove);
    GiveUp(*place);
  }
  if (known != nullptr) {
    tree_.Move(*known, parent, name);
    known->shallow = shallow;
  } else {
    tree_.Insert(wd, &parent, name).shallow = shallow;
  }
  return shallow ? Attached::kNone : Attached::kNew;
}

// Through the opened folder above it, since a path might lead elsewhere by now.
int TreeWatcher::AddWatch(int dir, std::string_view name, unsigned mask) {
  const std::string path = "/proc/self/fd/" + std::to_string(dir) + "/" + std::string(name);
  const int wd = ::inotify_add_watch(fd_, path.c_str(), mask);
  if (wd < 0) NoteFailure(errno);
  return wd;
}

// Why a folder cannot be watched. What is not listed here means that it is gone, is no folder, or
// is not to be read by us at all.
void TreeWatcher::NoteFailure(int code) {
  if (code == ENOSPC || code == ENOMEM || code == EMFILE || code == ENFILE) limit_reached_ = true;
}

void TreeWatcher::GiveUp(WatchedFolder& folder) {
  std::vector<int> wds;
  tree_.Remove(folder, wds);
  // Those of deleted folders are gone already.
  for (const int wd : wds) (void)::inotify_rm_watch(fd_, wd);
}

// Watches everything below a folder that is itself watched.
void TreeWatcher::ReadTree(int wd, bool report) {
  std::vector<int> left{wd};
  while (!left.empty()) {
    WatchedFolder* const folder = tree_.Find(left.back());
    left.pop_back();
    if (folder != nullptr) ReadFolder(*folder, report, left);
    // Without a report the reading serves the watches alone.
    if (overflow_ || (!report && limit_reached_)) return;
  }
}

void TreeWatcher::ReadFolder(WatchedFolder& folder, bool report, std::vector<int>& found) {
  const int own_wd = folder.wd;
  const int fd = OpenFolder(folder);
  DIR* const dir = fd < 0 ? nullptr : ::fdopendir(fd);
  if (dir == nullptr) {
    if (fd >= 0) ::close(fd);
    return;
  }
  while (const dirent* const entry = ::readdir(dir)) {
    if (IsDots(entry->d_name)) continue;
    // Attaching a folder that was found here may have given this one up.
    WatchedFolder* const parent = tree_.Find(own_wd);
    if (parent == nullptr) break;
    if (report) Tell(WatchAction::kAdded, RelativePath(*parent, entry->d_name));
    if (!IsFolder(fd, *entry)) continue;
    int wd = -1;
    const Attached attached = AttachAt(fd, *parent, entry->d_name, wd);
    // A known one below a folder that is itself new under its name is so, too.
    if (attached == Attached::kNew || (attached == Attached::kKnown && report)) found.push_back(wd);
  }
  ::closedir(dir);
}

// Looks at the folders below `moved` that could not be reached by their old paths.
void TreeWatcher::ReadMissed(int moved) {
  const std::set<int> missed = std::move(missed_);
  missed_.clear();
  for (const int wd : missed) {
    const WatchedFolder* const folder = tree_.Find(wd);
    const WatchedFolder* const top = tree_.Find(moved);
    if (folder == nullptr) continue;
    if (top != nullptr && WatchTree::IsWithin(*folder, *top)) {
      ReadTree(wd, true);
    } else {
      missed_.insert(wd);
    }
  }
}

std::string TreeWatcher::FullPath(const WatchedFolder& folder) const {
  if (folder.parent == nullptr) return root_.empty() ? "/" : root_;
  return root_ + "/" + WatchTree::PathOf(folder);
}

std::string TreeWatcher::RelativePath(const WatchedFolder& folder, std::string_view name) const {
  std::string path = WatchTree::PathOf(folder);
  if (!path.empty() && !name.empty()) path += '/';
  return path.append(name);
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
