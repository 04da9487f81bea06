#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <limits>
#include <string>

#include "platform/errno-linux.h"
#include "platform/files.h"
#include "platform/node-linux.h"
#include "platform/rename-linux.h"
#include "platform/service-slot.h"

namespace tolven::platform {

namespace {

constexpr mode_t kPermissionBits = 07777;

int OpenFlags(OpenMode mode) {
  switch (mode) {
    case OpenMode::kTruncate:
      return O_WRONLY | O_CREAT;  // emptied behind
    case OpenMode::kAppend:
      return O_WRONLY | O_CREAT | O_APPEND;
    case OpenMode::kModify:
      return O_RDWR;
    case OpenMode::kCreateExclusive:
      return O_WRONLY | O_CREAT | O_EXCL;
    case OpenMode::kRead:
      break;
  }
  return O_RDONLY;
}

// A folder can be opened for reading here, and a FIFO would make the reader wait for a writer.
Status RefuseUnreadable(const struct stat& st) {
  if (S_ISDIR(st.st_mode)) return StatusFromErrno(EISDIR);
  if (S_ISFIFO(st.st_mode)) return StatusFromErrno(EINVAL);
  return {};
}

// A file that is empty already is left alone: truncated, it would be written to the disk as soon as
// it is closed, which some file systems do for programs that replace a file by writing it anew.
Status Empty(int fd, const struct stat& st) {
  if (!S_ISREG(st.st_mode) || st.st_size == 0) return {};
  return Retry([&] { return ::ftruncate(fd, 0); }) == 0 ? Status{} : LastError();
}

// What follows an open by that mode. Reading ahead is worth a word only where it would begin small.
Status Prepare(int fd, OpenMode mode) {
  constexpr off_t kSmall = 128 * 1024;
  struct stat st {};
  if (::fstat(fd, &st) != 0) return LastError();
  const Status status = RefuseUnreadable(st);
  if (status.ok() && mode == OpenMode::kTruncate) return Empty(fd, st);
  if (status.ok() && mode == OpenMode::kRead && st.st_size > kSmall) {
    (void)::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  return status;
}

timespec ToTimespec(std::int64_t ns) {
  constexpr std::int64_t kSecond = 1'000'000'000;
  std::int64_t seconds = ns / kSecond;
  std::int64_t rest = ns % kSecond;
  if (rest < 0) {
    --seconds;
    rest += kSecond;
  }
  return {static_cast<time_t>(seconds), static_cast<long>(rest)};
}

// Bits that the system takes from the mode of every new file. Asking by umask() would change it for
// a moment, in all threads.
mode_t ProcessMask() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("Umask:")) {
      return static_cast<mode_t>(std::strtoul(line.c_str() + 6, nullptr, 8));
    }
  }
  return S_IWGRP | S_IWOTH;
}

// One that cannot be removed or replaced, whoever asks.
bool IsImmutable(const char* path) {
  struct statx info {};
  if (::statx(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, STATX_TYPE, &info) != 0) return false;
  return (info.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
}

Status CanReplace(const PathArgument& path, const struct stat& object) {
  const std::string folder = ParentOf(path.view());
  if (::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
    // Whatever stands in the way, a read-only volume too, is a refusal to the caller.
    return {ErrorKind::kAccessDenied, errno};
  }
  struct stat around {};
  if (::stat(folder.c_str(), &around) != 0) return LastError();
  const uid_t me = ::geteuid();
  const bool sticky = (around.st_mode & S_ISVTX) != 0;
  if (sticky && me != 0 && me != object.st_uid && me != around.st_uid) {
    return StatusFromErrno(EPERM);
  }
  if (IsImmutable(path.c_str()) || IsImmutable(folder.c_str())) return StatusFromErrno(EPERM);
  return {};
}

class LinuxFiles : public Files {
 public:
  Status Open(const ustring& path, OpenMode mode, NativeFile& file) override {
    file = kInvalidFile;
    const mode_t permissions = mode == OpenMode::kCreateExclusive ? 0600 : 0666;
    // Without O_NONBLOCK the call itself would wait at a FIFO; files do not heed it.
    const int flags = OpenFlags(mode) | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const int fd = Retry([&] { return ::open(path.c_str_utf8(), flags, permissions); });
    // Another program holds a lease on the file.
    if (fd < 0) return errno == EAGAIN ? Status{ErrorKind::kBusy, EAGAIN} : LastError();
    const Status status = Prepare(fd, mode);
    if (!status.ok()) {
      ::close(fd);
      return status;
    }
    file = fd;
    return {};
  }

  Status Close(NativeFile file) override {
    // The descriptor is gone also after EINTR: closing it again might hit someone else's.
    if (::close(Fd(file)) == 0 || errno == EINTR) return {};
    return LastError();
  }

  Status Read(NativeFile file, void* data, std::size_t size, std::size_t& got) override {
    const ssize_t count = Retry([&] { return ::read(Fd(file), data, size); });
    got = count < 0 ? 0 : static_cast<std::size_t>(count);
    return count < 0 ? LastError() : Status{};
  }

  Status Write(NativeFile file, const void* data, std::size_t size, std::size_t& written) override {
    const char* const bytes = static_cast<const char*>(data);
    written = 0;
    while (written < size) {
      const ssize_t count =
          Retry([&] { return ::write(Fd(file), bytes + written, size - written); });
      if (count < 0) return LastError();
      if (count == 0) return StatusFromErrno(EIO);
      written += static_cast<std::size_t>(count);
    }
    return {};
  }

  Status Seek(NativeFile file, std::uint64_t offset) override {
    if (offset > kLargestOffset) return StatusFromErrno(EINVAL);
    return ::lseek(Fd(file), static_cast<off_t>(offset), SEEK_SET) < 0 ? LastError() : Status{};
  }

  Status Truncate(NativeFile file, std::uint64_t size) override {
    if (size > kLargestOffset) return StatusFromErrno(EINVAL);
    return StatusOf(Retry([&] { return ::ftruncate(Fd(file), static_cast<off_t>(size)); }));
  }

  Status Sync(NativeFile file) override {
    return StatusOf(Retry([&] { return ::fsync(Fd(file)); }));
  }

  void StartWriteback(NativeFile file, std::uint64_t offset, std::uint64_t size) override {
    if (offset > kLargestOffset || size > kLargestOffset - offset) return;
    (void)::sync_file_range(Fd(file), static_cast<off64_t>(offset), static_cast<off64_t>(size),
                            SYNC_FILE_RANGE_WRITE);
  }

  Status StatFile(NativeFile file, NodeInfo& info) override {
    struct stat st {};
    if (::fstat(Fd(file), &st) != 0) return LastError();
    info = InfoOf(st);
    return {};
  }

  std::unique_ptr<AppendWriter> NewAppendWriter() override { return NewLinuxAppendWriter(); }

  Status Stat(const ustring& path, NodeInfo& info) override {
    struct stat st {};
    const Status status = Look(PathArgument(path), st);
    if (status.ok()) info = InfoOf(st);
    return status;
  }

  Status StatTarget(const ustring& path, NodeInfo& info) override {
    struct stat st {};
    if (::stat(PathArgument(path).c_str(), &st) != 0) return AbsentOr(errno);
    info = InfoOf(st);
    return {};
  }

  Status NameOnDisk(const ustring& path, ustring& name) override {
    struct stat st {};
    const PathArgument argument(path);
    const Status status = Look(argument, st);
    if (status.ok()) name = std::string(NameOf(argument.view()));
    return status;
  }

  // Names are already what the disk holds; all there is to tell is whether the object exists.
  Status RealPath(const ustring& path, ustring& real) override {
    struct stat st {};
    const Status status = Look(PathArgument(path), st);
    if (status.ok()) real = path;
    return status;
  }

  Status TryAccess(const ustring& path, Access access) override {
    const PathArgument argument(path);
    struct stat st {};
    const Status status = Look(argument, st);
    if (!status.ok()) return status;
    if (access != Access::kWrite && !S_ISLNK(st.st_mode)) {
      const int wanted = S_ISDIR(st.st_mode) ? R_OK | X_OK : R_OK;
      if (::faccessat(AT_FDCWD, argument.c_str(), wanted, AT_EACCESS) != 0) return LastError();
    }
    return access == Access::kRead ? Status{} : CanReplace(argument, st);
  }

  Status SetModifiedTime(const ustring& path, std::int64_t mtime_ns) override {
    const timespec times[2] = {{0, UTIME_OMIT}, ToTimespec(mtime_ns)};
    return StatusOf(::utimensat(AT_FDCWD, PathArgument(path).c_str(), times, AT_SYMLINK_NOFOLLOW));
  }

  Status SetMode(const ustring& path, std::uint32_t mode) override {
    return StatusOf(::fchmodat(AT_FDCWD, PathArgument(path).c_str(), mode & kPermissionBits,
                               AT_SYMLINK_NOFOLLOW));
  }

  std::uint32_t NewFileMode() override {
    static const std::uint32_t mode = 0666 & ~ProcessMask();
    return mode;
  }

  Status SetReadOnly(const ustring& path, bool read_only) override {
    NodeInfo info;
    const Status status = Stat(path, info);
    if (!status.ok()) return status;
    const std::uint32_t mode =
        read_only ? info.mode & ~std::uint32_t{S_IWUSR} : info.mode | S_IWUSR;
    return mode == info.mode ? Status{} : SetMode(path, mode);
  }

  Status SetHidden(const ustring&) override { return {}; }

  Status Rename(const ustring& from, const ustring& to) override {
    return RenameReplacing(PathArgument(from).c_str(), PathArgument(to).c_str());
  }

  Status RenameUnsynced(const ustring& from, const ustring& to) override {
    return StatusOf(::rename(PathArgument(from).c_str(), PathArgument(to).c_str()));
  }

  Status RenameNoReplace(const ustring& from, const ustring& to) override {
    return RenameKeeping(PathArgument(from).c_str(), PathArgument(to).c_str());
  }

  Status RemoveFile(const ustring& path) override {
    return StatusOf(::unlink(PathArgument(path).c_str()));
  }

  Status RemoveDirectory(const ustring& path) override {
    const PathArgument argument(path);
    if (::rmdir(argument.c_str()) == 0) return {};
    const int code = errno;
    struct stat link {};
    struct stat target {};
    if (code == ENOTDIR && ::lstat(argument.c_str(), &link) == 0 && S_ISLNK(link.st_mode) &&
        ::stat(argument.c_str(), &target) == 0 && S_ISDIR(target.st_mode)) {
      return StatusOf(::unlink(argument.c_str()));
    }
    // Some file systems say EEXIST for a folder that is not empty.
    return StatusFromErrno(code == EEXIST ? ENOTEMPTY : code);
  }

  Status MakeDirectory(const ustring& path) override {
    return StatusOf(::mkdir(PathArgument(path).c_str(), 0777));
  }

  Status MakeDirectoryMode(const ustring& path, std::uint32_t mode) override {
    const PathArgument argument(path);
    if (::mkdir(argument.c_str(), mode & kPermissionBits) != 0) return LastError();
    return SetMode(path, mode);  // the process's mask took bits away
  }

  Status SyncDirectory(const ustring& path) override { return SyncFolder(path.c_str_utf8()); }

  Status OpenDirectory(const ustring& path, bool want_info,
                       std::unique_ptr<DirReader>& reader) override {
    reader.reset();
    return ListOpened(OpenFolder(path.c_str_utf8()), want_info, reader);
  }

  Status OpenRealDirectory(const ustring& path, bool want_info,
                           std::unique_ptr<DirReader>& reader) override {
    reader.reset();
    return ListOpened(OpenFolder(PathArgument(path).c_str(), Links::kRefuse), want_info, reader);
  }

 private:
  static constexpr std::uint64_t kLargestOffset = std::numeric_limits<off_t>::max();

  static int Fd(NativeFile file) { return static_cast<int>(file); }

  // `fd` is what OpenFolder gave, errno still its own.
  static Status ListOpened(int fd, bool want_info, std::unique_ptr<DirReader>& reader) {
    if (fd < 0) return LastError();
    DIR* const dir = ::fdopendir(fd);
    if (dir == nullptr) {
      const Status status = LastError();
      ::close(fd);
      return status;
    }
    reader = NewDirReader(dir, want_info);
    return {};
  }

  // A file where a folder of the path should be: the folder does not exist.
  static Status AbsentOr(int code) {
    return code == ENOTDIR ? Status{ErrorKind::kNotFound, ENOTDIR} : StatusFromErrno(code);
  }

  static Status Look(const PathArgument& path, struct stat& st) {
    return ::lstat(path.c_str(), &st) == 0 ? Status{} : AbsentOr(errno);
  }
};

using Slot = ServiceSlot<Files, LinuxFiles>;

}  // namespace

Files& files() { return Slot::Get(); }
Files* SetFiles(Files* files) { return Slot::Set(files); }

}  // namespace tolven::platform
