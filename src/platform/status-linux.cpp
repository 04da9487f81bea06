#include <netdb.h>
#include <string.h>

#include "platform/errno-linux.h"

namespace tolven::platform {

namespace {

ErrorKind KindOf(int code) {
  switch (code) {
    case 0:
      return ErrorKind::kNone;
    case ENOENT:
    case ESRCH:
      return ErrorKind::kNotFound;
    case EACCES:
    case EPERM:
      return ErrorKind::kAccessDenied;
    case EBUSY:
    case ETXTBSY:
      return ErrorKind::kBusy;
    case EEXIST:
      return ErrorKind::kExists;
    case ENOTDIR:
      return ErrorKind::kNotDirectory;
    case EISDIR:
      return ErrorKind::kIsDirectory;
    case ENOTEMPTY:
      return ErrorKind::kNotEmpty;
    case ENAMETOOLONG:
      return ErrorKind::kNameTooLong;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return ErrorKind::kNoSpace;
    case EROFS:
      return ErrorKind::kReadOnly;
    case EMFILE:
    case ENFILE:
    case ENOMEM:
    case ENOBUFS:
      return ErrorKind::kTooMany;
    case EAGAIN:
      return ErrorKind::kWouldBlock;
    case EINPROGRESS:
    case EALREADY:
      return ErrorKind::kInProgress;
    case ETIMEDOUT:
      return ErrorKind::kTimedOut;
    case ECONNREFUSED:
    case ECONNRESET:
    case ECONNABORTED:
    case ENOTCONN:
    case EPIPE:
      return ErrorKind::kRefused;
    case EADDRINUSE:
      return ErrorKind::kAddressInUse;
    case ENOSYS:
    case EOPNOTSUPP:
    case EAFNOSUPPORT:
    case EPROTONOSUPPORT:
      return ErrorKind::kNotSupported;
    case EBADF:
    case EINVAL:
    case EFAULT:
    case EILSEQ:
    case ENOTSOCK:
      return ErrorKind::kInvalid;
    default:
      return ErrorKind::kOther;
  }
}

}  // namespace

Status StatusFromErrno(int code) { return {KindOf(code), code}; }

std::string StatusText(const Status& status) {
  if (status.code < 0) return gai_strerror(status.code);
  char buffer[128];
  return strerror_r(status.code, buffer, sizeof buffer);
}

}  // namespace tolven::platform
