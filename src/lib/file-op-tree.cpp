// Listing folders, walking trees and removing them. Trees are as deep as paths may be long, so
// walks keep their own stack, and a folder is read whole before anything in it is touched: neither
// the call stack nor the count of open folders grows with the depth.

#include <mutex>
#include <utility>
#include <vector>

#include "lib/file-op-detail.h"
#include "lib/file-op.h"
#include "lib/log.h"
#include "platform/trash.h"

namespace tolven {

using file_op::kCategory;
using platform::DirItem;
using platform::ErrorKind;
using platform::NodeKind;
using platform::Status;

namespace {

constexpr std::uint32_t kOwnerAll = 0700;

// The desktop's bin is not safe to use from two threads.
std::mutex trash_mutex;

struct Child {
  ustring name;
  NodeKind kind;
};

bool IsDots(const ustring& name) { return name == "." || name == ".."; }

Status ListChildren(const ustring& dir, std::vector<Child>& children) {
  std::unique_ptr<platform::DirReader> reader;
  Status status = platform::files().OpenRealDirectory(dir, false, reader);
  bool done = false;
  while (status.ok() && !done) {
    DirItem item;
    status = reader->Next(item, done);
    if (status.ok() && !done && !IsDots(item.name)) {
      children.push_back({std::move(item.name), item.info.kind});
    }
  }
  return status;
}

struct Folder {
  ustring path;
  std::vector<Child> children;
  std::size_t next = 0;

  ustring PathOf(const Child& child) const { return path + "/" + child.name; }
};

// What somebody else removed meanwhile is as good as removed.
Status Gone(const Status& status) { return status.is(ErrorKind::kNotFound) ? Status{} : status; }

// Does something in a folder of the tree, and once more when its owner had closed it for that.
template <class Action>
Status OpeningUp(const ustring& folder, Action action) {
  const Status status = action();
  if (!status.is(ErrorKind::kAccessDenied)) return status;
  platform::NodeInfo info;
  const bool opened = platform::files().Stat(folder, info).ok() &&
                      info.kind == NodeKind::kDirectory && (info.mode & kOwnerAll) != kOwnerAll &&
                      platform::files().SetMode(folder, info.mode | kOwnerAll).ok();
  return opened ? action() : status;
}

// A folder's name may have become a link since it was listed; the link goes, unread.
Status RemoveOrList(const ustring& path, NodeKind kind, std::vector<Folder>& open) {
  if (kind == NodeKind::kDirectory) {
    Folder inner;
    inner.path = path;
    const Status listed =
        OpeningUp(path, [&inner] { return ListChildren(inner.path, inner.children); });
    if (!listed.is(ErrorKind::kNotDirectory)) {
      if (listed.ok()) open.push_back(std::move(inner));
      return Gone(listed);
    }
  }
  return Gone(OpeningUp(open.back().path, [&path] { return platform::files().RemoveFile(path); }));
}

// What holds the tree keeps its permissions, whatever becomes of the tree.
Status RemoveEmpty(std::vector<Folder>& open) {
  const ustring path = std::move(open.back().path);
  open.pop_back();
  const auto remove = [&path] { return platform::files().RemoveDirectory(path); };
  return Gone(open.empty() ? remove() : OpeningUp(open.back().path, remove));
}

Status RemoveDirectoryRecursive(const ustring& dir) {
  std::vector<Folder> open(1);
  open.back().path = dir;
  Status status = OpeningUp(dir, [&] { return ListChildren(dir, open.back().children); });
  while (status.ok() && !open.empty()) {
    Folder& folder = open.back();
    if (folder.next == folder.children.size()) {
      status = RemoveEmpty(open);
      continue;
    }
    const Child& child = folder.children[folder.next++];
    status = RemoveOrList(folder.PathOf(child), child.kind, open);
  }
  return status;
}

int RemoveForGood(const ustring& path, FILE_TYPE type) {
  const Status status =
      type == FT_DIR ? RemoveDirectoryRecursive(path) : platform::files().RemoveFile(path);
  if (Gone(status).ok()) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] file-op-win(%d): FSRemove: failed on %s. error code %d\n", __LINE__,
                 path, status.code);
  return -1;
}

}  // namespace

int FSRemove(const ustring& path, bool allowundo) {
  if (path.empty()) return -1;
  FILE_INFO info;
  if (FSStat(path, info, true) != 0) return -1;
  if (!info.isExist) return 0;
  if (allowundo) {
    const std::lock_guard lock(trash_mutex);
    const Status moved = platform::trash().MoveToTrash(path);
    if (moved.ok()) return 0;
    if (!moved.is(ErrorKind::kNotSupported)) {
      Logger::LogMsg(Logger::L_ERR, kCategory,
                     L"[ERROR] file-op-win(%d): SHFileOperation fail: %s %s  GetLastError:%d   "
                     L"return code: %d=%x\n",
                     __LINE__, path, platform::StatusText(moved), moved.code, moved.code,
                     moved.code);
      return -3;
    }
  }
  // A link is removed as such, whatever it points to.
  if (info.type != FT_DIR && info.type != FT_FILE && info.type != FT_SLINK) return -1;
  return RemoveForGood(path, info.type);
}

namespace {

enum class Step { kOpened, kNothing, kRefused, kUnreadable };

// What TraverseDir does with a folder before its children: `folder` is filled when it can be
// walked.
Step EnterFolder(const ustring& dir, FN_ACT_TRAVERSE_DIR fn, void* priv, Folder& folder) {
  if (fn(dir, priv) != 0) return Step::kRefused;
  FILE_INFO info;
  if (FSStat(dir, info, true) != 0 || !info.isExist || info.type != FT_DIR) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] file-op-win(%d): TraverseDir: '%s' is not directory, stop here\n",
                   __LINE__, dir);
    return Step::kNothing;
  }
  folder.path = dir;
  return ListChildren(dir, folder.children).ok() ? Step::kOpened : Step::kUnreadable;
}

}  // namespace

int TraverseDir(const ustring& dir, FN_ACT_TRAVERSE_DIR fn, void* pPriv) {
  std::vector<Folder> open(1);
  switch (EnterFolder(dir, fn, pPriv, open.back())) {
    case Step::kRefused:
      return -2;
    case Step::kNothing:
      return 0;
    case Step::kUnreadable:
      return -1;
    case Step::kOpened:
      break;
  }
  while (!open.empty()) {
    Folder& folder = open.back();
    if (folder.next == folder.children.size()) {
      open.pop_back();
      continue;
    }
    const Child& child = folder.children[folder.next++];
    const ustring path = folder.PathOf(child);
    bool stop = false;
    Folder inner;
    Step step = Step::kNothing;
    if (child.kind == NodeKind::kDirectory) {
      step = EnterFolder(path, fn, pPriv, inner);
      stop = step == Step::kRefused || step == Step::kUnreadable;
    } else {
      stop = fn(path, pPriv) != 0;
    }
    if (stop) {
      Logger::LogMsg(Logger::L_NOTICE, kCategory,
                     L"[NOTE] file-op-win(%d): TraverseDir: stopped at '%s'\n", __LINE__, path);
      open.pop_back();
    } else if (step == Step::kOpened) {
      open.push_back(std::move(inner));
    }
  }
  return 0;
}

int FSOpenDir(const ustring& path, int flag, DIR_HANDLE& dh) {
  dh.path = path;
  dh.flag = flag;
  dh.handle.reset();
  return 0;
}

int FSReadDir(DIR_HANDLE& dh, DIR_ENTRY& entry) {
  bool missing = false;
  return FSReadDir(dh, entry, missing);
}

int FSReadDir(DIR_HANDLE& dh, DIR_ENTRY& entry, bool& missing) {
  missing = false;
  const bool want_info = (dh.flag & kDirStat) != 0;
  Status status;
  if (dh.handle == nullptr) {
    status = platform::files().OpenDirectory(dh.path, want_info, dh.handle);
    missing = status.is(ErrorKind::kNotFound);
  }
  DirItem item;
  bool done = false;
  if (status.ok()) status = dh.handle->Next(item, done);
  if (!status.ok()) return -1;
  if (done) return 0;
  entry.name = std::move(item.name);
  entry.type = file_op::TypeOf(item.info);
  entry.mtime = want_info ? file_op::Seconds(item.info.mtime_ns) : 0;
  entry.size = want_info && entry.type == FT_FILE ? item.info.size : 0;
  return 1;
}

int FSCloseDir(DIR_HANDLE& dh) {
  dh.handle.reset();
  return 0;
}

}  // namespace tolven
