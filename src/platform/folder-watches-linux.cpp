#include "platform/folder-watches-linux.h"

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

FolderWatches::FolderWatches(const ustring& root, const ustring& skip_name, Found found)
    : root_(WithoutEnd(root.str())), skip_name_(skip_name.str()), found_(std::move(found)) {}

FolderWatches::~FolderWatches() {
  if (fd_ >= 0) ::close(fd_);
}

Status FolderWatches::Start() {
  const Status status = OpenQueue();
  return status.ok() ? WatchRoot() : status;
}

Status FolderWatches::Restart() {
  tree_.Clear();
  missed_.clear();
  // All watches end with the old queue. Without a new one they go on in the old.
  (void)OpenQueue();
  return WatchRoot();
}

// A queue that is opened again keeps its descriptor, on which another thread may be waiting.
Status FolderWatches::OpenQueue() {
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

Status FolderWatches::WatchRoot() {
  root_wd_ = ::inotify_add_watch(fd_, root_.empty() ? "/" : root_.c_str(), kRootMask);
  if (root_wd_ < 0) {
    return errno == ENOSPC ? Status{ErrorKind::kTooMany, ENOSPC} : LastError();
  }
  tree_.Insert(root_wd_, nullptr, "");
  ReadTree(root_wd_, false);
  return {};
}

void FolderWatches::Move(WatchedFolder& from, std::string_view from_name, WatchedFolder& to,
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

void FolderWatches::Arrive(WatchedFolder& parent, std::string_view name) {
  int wd = -1;
  if (Attach(parent, name, wd) == Attached::kNew) ReadTree(wd, true);
}

void FolderWatches::Leave(WatchedFolder& parent, std::string_view name) {
  WatchedFolder* const folder = tree_.Child(parent, name);
  if (folder != nullptr) GiveUp(*folder);
}

// Opens a watched folder by its path. The queue may be behind the disk, so that the path leads to
// another folder by now, or nowhere: then the folder is missed, and looked at when it has moved.
int FolderWatches::OpenFolder(const WatchedFolder& folder) {
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
FolderWatches::Attached FolderWatches::Attach(WatchedFolder& parent, std::string_view name,
                                              int& wd) {
  const int dir = parent.shallow ? -1 : OpenFolder(parent);
  if (dir < 0) return Attached::kNone;
  const Attached attached = AttachAt(dir, parent, name, wd);
  ::close(dir);
  return attached;
}

// `dir` is the opened parent.
FolderWatches::Attached FolderWatches::AttachAt(int dir, WatchedFolder& parent,
                                                std::string_view name, int& wd) {
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
int FolderWatches::AddWatch(int dir, std::string_view name, unsigned mask) {
  const std::string path = "/proc/self/fd/" + std::to_string(dir) + "/" + std::string(name);
  const int wd = ::inotify_add_watch(fd_, path.c_str(), mask);
  if (wd < 0) NoteFailure(errno);
  return wd;
}

// Why a folder cannot be watched. What is not listed here means that it is gone, is no folder, or
// is not to be read by us at all.
void FolderWatches::NoteFailure(int code) {
  if (code == ENOSPC || code == ENOMEM || code == EMFILE || code == ENFILE) limit_reached_ = true;
}

void FolderWatches::GiveUp(WatchedFolder& folder) {
  std::vector<int> wds;
  tree_.Remove(folder, wds);
  // Those of deleted folders are gone already.
  for (const int wd : wds) (void)::inotify_rm_watch(fd_, wd);
}

// Watches everything below a folder that is itself watched.
void FolderWatches::ReadTree(int wd, bool report) {
  std::vector<int> left{wd};
  stopped_ = false;
  while (!left.empty()) {
    WatchedFolder* const folder = tree_.Find(left.back());
    left.pop_back();
    if (folder != nullptr) ReadFolder(*folder, report, left);
    // Without a report the reading serves the watches alone.
    if (stopped_ || (!report && limit_reached_)) return;
  }
}

void FolderWatches::ReadFolder(WatchedFolder& folder, bool report, std::vector<int>& found) {
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
    if (report && !found_(PathOf(*parent, entry->d_name))) stopped_ = true;
    if (stopped_) break;
    if (!IsFolder(fd, *entry)) continue;
    int wd = -1;
    const Attached attached = AttachAt(fd, *parent, entry->d_name, wd);
    // A known one below a folder that is itself new under its name is so, too.
    if (attached == Attached::kNew || (attached == Attached::kKnown && report)) found.push_back(wd);
  }
  ::closedir(dir);
}

// Looks at the folders below `moved` that could not be reached by their old paths.
void FolderWatches::ReadMissed(int moved) {
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

std::string FolderWatches::FullPath(const WatchedFolder& folder) const {
  if (folder.parent == nullptr) return root_.empty() ? "/" : root_;
  return root_ + "/" + WatchTree::PathOf(folder);
}

std::string FolderWatches::PathOf(const WatchedFolder& folder, std::string_view name) {
  std::string path = WatchTree::PathOf(folder);
  if (!path.empty() && !name.empty()) path += '/';
  return path.append(name);
}

}  // namespace tolven::platform
