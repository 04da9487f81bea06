#include "lib/file-op.h"

#include <algorithm>
#include <atomic>
#include <tuple>

#include "lib/file-op-detail.h"
#include "lib/log.h"
#include "platform/volumes.h"

namespace tolven {

using file_op::kCategory;
using platform::ErrorKind;
using platform::NodeInfo;
using platform::NodeKind;
using platform::Status;

namespace file_op {

FILE_TYPE TypeOf(const NodeInfo& info) {
  switch (info.kind) {
    case NodeKind::kFile:
      return FT_FILE;
    case NodeKind::kDirectory:
      return FT_DIR;
    case NodeKind::kLink:
      return FT_SLINK;
    case NodeKind::kDevice:
      return FT_DEV;
    case NodeKind::kFifo:
      return FT_FIFO;
    case NodeKind::kSocket:
      return FT_SOCK;
  }
  return FT_ERR;
}

std::uint32_t Seconds(std::int64_t nanoseconds) {
  constexpr std::int64_t kSecond = 1'000'000'000;
  std::int64_t seconds = nanoseconds / kSecond;
  if (nanoseconds % kSecond < 0) --seconds;  // downwards also before 1970
  return static_cast<std::uint32_t>(seconds);
}

ustring ParentOf(const ustring& path) {
  const std::string_view text = path.view();
  const std::size_t root = platform::PathRootLength(path);
  std::size_t end = text.size();
  while (end > root && platform::IsPathSeparator(text[end - 1])) --end;
  while (end > root && !platform::IsPathSeparator(text[end - 1])) --end;
  while (end > root && platform::IsPathSeparator(text[end - 1])) --end;
  return ustring(text.substr(0, end));
}

}  // namespace file_op

namespace {

// A volume with times of 2 seconds' resolution takes part in syncing.
std::atomic<bool> coarse_times{false};

bool IsMissing(const Status& status) {
  return status.is(ErrorKind::kNotFound) || status.is(ErrorKind::kNotDirectory);
}

// False, logged, when the volume cannot be told.
bool LookAtVolume(const ustring& path, bool& coarse) {
  ustring name;
  Status status = platform::volumes().FileSystemName(path, name);
  if (status.ok()) status = platform::volumes().IsCoarseTimed(path, coarse);
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] file-op-win(%d): GetVolumeInformation: Error code %d\n", __LINE__,
                   status.code);
  } else if (coarse) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] file-op-win(%d): Detect a non-NTFS platform (%s)\n", __LINE__, name);
  }
  return status.ok();
}

void LogFindFailure(const ustring& path, const Status& status) {
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] file-op-win(%d): FindFirstFile: %d [%s, %s]\n",
                 __LINE__, status.code, path, platform::StatusText(status));
}

// The last component; a separator at the very end belongs to it.
std::string_view LastComponent(std::string_view path) {
  std::size_t start = path.size();
  if (start > 0) --start;
  while (start > 0 && !platform::IsPathSeparator(path[start - 1])) --start;
  return path.substr(start);
}

}  // namespace

bool operator==(const FILE_INFO& a, const FILE_INFO& b) {
  return std::tie(a.isExist, a.size, a.mtime, a.type) ==
             std::tie(b.isExist, b.size, b.mtime, b.type) &&
         a.path == b.path && a.name == b.name;
}

int FSInit(const ustring& path) {
  if (!platform::volumes().IsVolumePath(path)) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] file-op-win(%d): FSInit: Invalid path (%s)\n", __LINE__, path);
    return -1;
  }
  bool coarse = false;
  if (!LookAtVolume(path, coarse)) return -1;
  if (coarse) coarse_times = true;
  return 0;
}

int FSInitialize(std::uint32_t, std::uint32_t) { return 0; }
int FSChown(const ustring&) { return 0; }

bool IsMSDOS(const ustring& path) {
  if (!platform::volumes().IsVolumePath(path)) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] file-op-win(%d): IsSupportLargeFile: Invalid path (%s)\n", __LINE__,
                   path);
    return false;
  }
  bool coarse = false;
  return LookAtVolume(path, coarse) && coarse;
}

bool isMountPoint(const ustring& path) {
  return platform::volumes().KindOf(path) == platform::DriveKind::kRemote;
}

bool IsFileExist(const ustring& path, bool do_case_check) {
  if (path.empty()) return false;
  ustring on_disk;
  NodeInfo info;
  const Status status = do_case_check ? platform::files().NameOnDisk(path, on_disk)
                                      : platform::files().Stat(path, info);
  if (!status.ok()) {
    if (!IsMissing(status)) LogFindFailure(path, status);
    return false;
  }
  return !do_case_check || LastComponent(path.view()) == on_disk.view();
}

int FSStat(const ustring& path, FILE_INFO& info, bool do_case_check) {
  info = FILE_INFO();
  NodeInfo node;
  ustring on_disk;
  Status status = platform::files().Stat(path, node);
  if (status.ok() && do_case_check) status = platform::files().NameOnDisk(path, on_disk);
  if (path.empty() || IsMissing(status)) return 0;
  if (status.is(ErrorKind::kNameTooLong)) {  // what cannot be held is not there
    LogFindFailure(path, status);
    return 0;
  }
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] file-op-win(%d): FSStat: Failed on %s. Error code %d\n", __LINE__,
                   path, status.code);
    return -1;
  }
  if (do_case_check && LastComponent(path.view()) != on_disk.view()) return 0;
  info.isExist = true;
  info.path = path;
  info.size = node.size;
  info.mtime = file_op::Seconds(node.mtime_ns);
  info.type = file_op::TypeOf(node);
  info.uid = node.uid;
  info.gid = node.gid;
  info.mode = node.mode;
  info.mtime_ns = node.mtime_ns;
  info.volume_id = node.volume_id;
  info.file_id = node.file_id;
  return 0;
}

bool isFileLocked(const ustring& path, std::uint32_t flag) {
  const bool write = (flag & kLockWrite) != 0;
  const bool read = (flag & kLockRead) != 0 || !write;
  const auto access = read && write ? platform::Access::kReadWrite
                      : write       ? platform::Access::kWrite
                                    : platform::Access::kRead;
  const Status status = platform::files().TryAccess(path, access);
  return status.is(ErrorKind::kAccessDenied) || status.is(ErrorKind::kBusy);
}

int FSUTime(const ustring& path, std::uint32_t, std::uint32_t mtime) {
  if (coarse_times) mtime &= ~1U;
  const Status status =
      platform::files().SetModifiedTime(path, std::int64_t{mtime} * 1'000'000'000);
  if (status.ok()) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] file-op-win(%d): FSUTime: error code %d\n",
                 __LINE__, status.code);
  return -1;
}

bool FSTimeEqual(std::uint32_t a, std::uint32_t b) {
  const std::uint32_t difference = a > b ? a - b : b - a;
  return coarse_times ? difference < 2 : difference == 0;
}

int FSGetRealPath(ustring& path) {
  ustring real;
  const Status status = platform::files().RealPath(path, real);
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] file-op-win(%d): Cannot Get Short Path name for [%s].\n", __LINE__,
                   path);
    return -1;
  }
  std::string_view text = real.view();
  const std::size_t root = platform::PathRootLength(real);  // a drive keeps its separator
  while (text.size() > root && platform::IsPathSeparator(text.back())) text.remove_suffix(1);
  if (std::all_of(text.begin(), text.end(), platform::IsPathSeparator)) {
    Logger::LogMsg(
        Logger::L_ERR, kCategory,
        L"[ERROR] file-op-win(%d): Unexpected error, Null path is resolved. path = [%s]\n",
        __LINE__, path);
    return -1;
  }
  path = ustring(text);
  return 0;
}

}  // namespace tolven
