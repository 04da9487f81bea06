// Copying, renaming and creating.

#include <mutex>
#include <new>

#include "lib/file-op-detail.h"
#include "lib/file-op.h"
#include "lib/log.h"
#include "lib/tmp-name-gen.h"

namespace tolven {

std::mutex file_op::rename_mutex;

using file_op::kCategory;
using file_op::rename_mutex;
using platform::ErrorKind;
using platform::NodeKind;
using platform::OpenMode;
using platform::ScopedFile;
using platform::Status;

namespace {

constexpr std::size_t kCopyBlock = 0x2000000;
constexpr int kMaxTempNames = 100;

int CopyContent(platform::NativeFile source, platform::NativeFile target) {
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[kCopyBlock]);
  if (buffer == nullptr) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] file-op-win(%d): FSCopy: Buffer allocated failed\n", __LINE__);
    return -1;
  }
  for (;;) {
    std::size_t got = 0, written = 0;
    Status status = platform::files().Read(source, buffer.get(), kCopyBlock, got);
    if (!status.ok()) {
      Logger::LogMsg(Logger::L_ERR, kCategory,
                     L"[ERROR] file-op-win(%d): FSCopy: ReadFile failed with error code %d\n",
                     __LINE__, status.code);
      return -1;
    }
    if (got == 0) return 0;
    status = platform::files().Write(target, buffer.get(), got, written);
    if (!status.ok()) {
      Logger::LogMsg(Logger::L_ERR, kCategory,
                     L"[ERROR] file-op-win(%d): FSCopy: WriteFile failed with error code %d\n",
                     __LINE__, status.code);
      return -1;
    }
  }
}

// Emptying the target would empty the source, too.
bool IsSameFile(platform::NativeFile source, const ustring& to) {
  platform::NodeInfo from_info, to_info;
  return platform::files().StatFile(source, from_info).ok() &&
         platform::files().StatTarget(to, to_info).ok() &&
         from_info.volume_id == to_info.volume_id && from_info.file_id == to_info.file_id;
}

bool IsFolder(const ustring& path) {
  platform::NodeInfo info;
  return platform::files().Stat(path, info).ok() && info.kind == NodeKind::kDirectory;
}

// One component on the way of FSMKDirP. A link to a folder serves as one, as everywhere on a path.
int MakeStep(const ustring& prefix, bool force) {
  platform::Files& files = platform::files();
  platform::NodeInfo info;
  if (files.StatTarget(prefix, info).ok() && info.kind == NodeKind::kDirectory) return 0;
  if (files.Stat(prefix, info).ok()) {
    if (!force) return -1;
    (void)files.RemoveFile(prefix);
  }
  const Status made = files.MakeDirectory(prefix);
  if (made.ok() || (made.is(ErrorKind::kExists) && IsFolder(prefix))) return 0;
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] file-op-win(%d): FSMKDirP fail: %s\n",
                 __LINE__, platform::StatusText(made));
  return made.is(ErrorKind::kNameTooLong) ? kNameNotSupported : -1;
}

}  // namespace

int FSCopy(const ustring& from, const ustring& to, bool isDelOrigin) {
  ScopedFile source, target;
  Status status = platform::files().Open(from, OpenMode::kRead, *source.receive());
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] file-op-win(%d): FSCopy: Invalid source (%s). Error code %d\n",
                   __LINE__, from, status.code);
    return -1;
  }
  status = IsSameFile(source.get(), to)
               ? Status{ErrorKind::kBusy, 0}
               : platform::files().Open(to, OpenMode::kTruncate, *target.receive());
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] file-op-win(%d): FSCopy: Invalid destination. Error code %d\n",
                   __LINE__, status.code);
    return -1;
  }
  if (CopyContent(source.get(), target.get()) != 0) return -1;
  // Some file systems report a full disk only now.
  status = platform::files().Close(target.Release());
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] file-op-win(%d): FSCopy: WriteFile failed with error code %d\n",
                   __LINE__, status.code);
    return -1;
  }
  source.Reset();
  if (!isDelOrigin) return 0;
  status = platform::files().RemoveFile(from);
  if (status.ok()) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] file-op-win(%d): FSCopy: DeleteFile failed with error code %d\n",
                 __LINE__, status.code);
  return -1;
}

namespace {

int RenameResult(const Status& status) {
  if (status.ok()) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] file-op-win(%d): FSRename: error code %d\n",
                 __LINE__, status.code);
  return status.is(ErrorKind::kNameTooLong) ? kNameNotSupported : -1;
}

}  // namespace

int FSRename(const ustring& from, const ustring& to, bool) {
  const std::lock_guard lock(rename_mutex);
  return RenameResult(platform::files().Rename(from, to));
}

int FSRenameNoReplace(const ustring& from, const ustring& to) {
  {
    const std::lock_guard lock(rename_mutex);
    const int code = RenameResult(platform::files().RenameNoReplace(from, to));
    if (code != 0) return code;
  }
  // The new name first: a crash in between leaves two names and not none.
  const ustring target = file_op::ParentOf(to), source = file_op::ParentOf(from);
  (void)platform::files().SyncDirectory(target);
  if (source != target) (void)platform::files().SyncDirectory(source);
  return 0;
}

int FSMKDir(const ustring& path, bool isCreateParent) {
  if (isCreateParent) return FSMKDirP(path, nullptr, false, -1, -1, 0xFFFF);
  const Status status = platform::files().MakeDirectory(path);
  if (status.ok() || (status.is(ErrorKind::kExists) && IsFolder(path))) return 0;
  return status.is(ErrorKind::kNameTooLong) ? kNameNotSupported : -1;
}

int FSMKDirP(const ustring& path, void*, bool blForceCreate, int, int, std::uint32_t) {
  if (path.empty()) return -1;
  const std::string_view text = path.view();
  std::size_t end = platform::PathRootLength(path);
  while (end < text.size()) {
    std::size_t start = end;
    while (start < text.size() && platform::IsPathSeparator(text[start])) ++start;
    end = start;
    while (end < text.size() && !platform::IsPathSeparator(text[end])) ++end;
    if (end == start) break;
    const int made = MakeStep(ustring(text.substr(0, end)), blForceCreate);
    if (made != 0) return made;
  }
  return 0;
}

int FSMktemp(const ustring& prefix, ustring& path) {
  for (int i = 0; i < kMaxTempNames; ++i) {
    if (FSCreateTempPath(prefix, path) != 0) break;
    ScopedFile file;
    const Status made = platform::files().Open(path, OpenMode::kCreateExclusive, *file.receive());
    if (made.ok()) return 0;
    if (!made.is(ErrorKind::kExists)) break;
  }
  path.clear();
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] file-op-win(%d): FSMktemp failed.\n",
                 __LINE__);
  return -1;
}

int FSCreateTempPath(const ustring& prefix, ustring& path) {
  path.clear();
  // Nothing is ever created at the root of a file system, least of all for want of a folder.
  if (platform::PathRootLength(prefix) == prefix.size()) return -1;
  path = TmpNameGen::getInstance().getTmpPath(prefix);
  return path.empty() ? -1 : 0;
}

}  // namespace tolven
