#include "platform/rename-linux.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "platform/errno-linux.h"
#include "platform/node-linux.h"

namespace tolven::platform {

namespace {

// Both folders of a rename that has taken place: the new name first, so that a crash in between
// leaves two names and not none.
Status SyncRename(const char* from, const char* to) {
  const std::string from_folder = ParentOf(from);
  const std::string to_folder = ParentOf(to);
  const Status status = SyncFolder(to_folder.c_str());
  if (!status.ok() || from_folder == to_folder) return status;
  return SyncFolder(from_folder.c_str());
}

}  // namespace

// Takes the name by creating an empty object of the same kind, which a plain rename then replaces.
// A folder that someone filled meanwhile is not replaced by the kernel.
Status RenameOverPlaceholder(const char* from, const char* to, bool folder) {
  if (folder) {
    if (::mkdir(to, 0700) != 0) return LastError();
  } else {
    const int fd =
        Retry([to] { return ::open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); });
    if (fd < 0) return LastError();
    ::close(fd);
  }
  if (::rename(from, to) == 0) return {};
  const int code = errno;
  struct stat left {};
  if (folder) {
    (void)::rmdir(to);
  } else if (::lstat(to, &left) == 0 && S_ISREG(left.st_mode) && left.st_size == 0) {
    (void)::unlink(to);
  }
  return StatusFromErrno(code == ENOTEMPTY ? EEXIST : code);
}

Status RenameByLink(const char* from, const char* to) {
  struct stat st {};
  if (::lstat(from, &st) != 0) return LastError();
  if (S_ISDIR(st.st_mode)) return RenameOverPlaceholder(from, to, true);
  if (::link(from, to) == 0) {
    if (::unlink(from) == 0) return {};
    const Status status = LastError();
    (void)::unlink(to);
    return status;
  }
  if (errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS || errno == EMLINK) {
    return RenameOverPlaceholder(from, to, false);
  }
  return LastError();
}

Status SyncFolder(const char* path) {
  const int fd = OpenFolder(path);
  // A folder may be writable and yet not readable; then there is no way to sync it alone.
  if (fd < 0) return errno == EACCES ? Status{} : LastError();
  const int result = Retry([fd] { return ::fsync(fd); });
  const int code = result == 0 ? 0 : errno;
  ::close(fd);
  // Some file systems cannot sync a folder and say so in this way.
  if (code == EINVAL || code == EOPNOTSUPP || code == ENOSYS) return {};
  return StatusFromErrno(code);
}

Status RenameReplacing(const char* from, const char* to) {
  if (::rename(from, to) != 0) return LastError();
  return SyncRename(from, to);
}

Status RenameKeeping(const char* from, const char* to) {
  Status status = StatusOf(::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE));
  // EINVAL is the answer of a file system without the flag.
  if (status.code == EINVAL || status.code == ENOSYS || status.code == EOPNOTSUPP) {
    status = RenameByLink(from, to);
  }
  return status;
}

}  // namespace tolven::platform
