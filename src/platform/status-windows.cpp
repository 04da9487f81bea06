#include "platform/error-windows.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

// ERROR_DISK_QUOTA_EXCEEDED, which the compiler's headers lack.
constexpr DWORD kDiskQuotaExceeded = 1295;

ErrorKind KindOfFileError(DWORD code) {
  switch (code) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
      return ErrorKind::kNotFound;
    case ERROR_ACCESS_DENIED:
    case ERROR_DELETE_PENDING:
    case ERROR_PRIVILEGE_NOT_HELD:
      return ErrorKind::kAccessDenied;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
    case ERROR_BUSY:
      return ErrorKind::kBusy;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return ErrorKind::kExists;
    case ERROR_DIRECTORY:
      return ErrorKind::kNotDirectory;
    case ERROR_DIR_NOT_EMPTY:
      return ErrorKind::kNotEmpty;
    case ERROR_INVALID_NAME:
    case ERROR_BUFFER_OVERFLOW:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE:
      return ErrorKind::kNameTooLong;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case kDiskQuotaExceeded:
    case ERROR_FILE_TOO_LARGE:
      return ErrorKind::kNoSpace;
    case ERROR_WRITE_PROTECT:
      return ErrorKind::kReadOnly;
    case ERROR_TOO_MANY_OPEN_FILES:
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
    case ERROR_NO_SYSTEM_RESOURCES:
      return ErrorKind::kTooMany;
    case ERROR_SEM_TIMEOUT:
    case WAIT_TIMEOUT:
      return ErrorKind::kTimedOut;
    case ERROR_NOT_SUPPORTED:
    case ERROR_INVALID_FUNCTION:
    case ERROR_CALL_NOT_IMPLEMENTED:
      return ErrorKind::kNotSupported;
    case ERROR_INVALID_HANDLE:
    case ERROR_INVALID_PARAMETER:
    case ERROR_NEGATIVE_SEEK:
    case ERROR_NO_UNICODE_TRANSLATION:
      return ErrorKind::kInvalid;
    default:
      return ErrorKind::kOther;
  }
}

ErrorKind KindOf(DWORD code) {
  switch (code) {
    case ERROR_SUCCESS:
      return ErrorKind::kNone;
    case WSAHOST_NOT_FOUND:
    case WSANO_DATA:
      return ErrorKind::kNotFound;
    case WSAEACCES:
      return ErrorKind::kAccessDenied;
    case WSAEMFILE:
    case WSAENOBUFS:
    case WSA_NOT_ENOUGH_MEMORY:
      return ErrorKind::kTooMany;
    case WSAEWOULDBLOCK:
      return ErrorKind::kWouldBlock;
    case WSAEINPROGRESS:
    case WSAEALREADY:
      return ErrorKind::kInProgress;
    case WSAETIMEDOUT:
      return ErrorKind::kTimedOut;
    case ERROR_NETNAME_DELETED:
    case ERROR_CONNECTION_REFUSED:
    case ERROR_CONNECTION_ABORTED:
    case WSAECONNREFUSED:
    case WSAECONNRESET:
    case WSAECONNABORTED:
    case WSAENETRESET:
    case WSAENOTCONN:
    case WSAESHUTDOWN:
      return ErrorKind::kRefused;
    case WSAEADDRINUSE:
      return ErrorKind::kAddressInUse;
    case WSAEOPNOTSUPP:
    case WSAEAFNOSUPPORT:
    case WSAEPROTONOSUPPORT:
      return ErrorKind::kNotSupported;
    case WSAEBADF:
    case WSAEINVAL:
    case WSAEFAULT:
    case WSAENOTSOCK:
      return ErrorKind::kInvalid;
    default:
      return KindOfFileError(code);
  }
}

}  // namespace

Status StatusFromError(DWORD code) { return {KindOf(code), static_cast<int>(code)}; }

std::string StatusText(const Status& status) {
  constexpr DWORD kFlags =
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;
  wchar_t buffer[512];
  const DWORD size = ::FormatMessageW(kFlags, nullptr, static_cast<DWORD>(status.code), 0, buffer,
                                      static_cast<DWORD>(std::size(buffer)), nullptr);
  if (size == 0) return "Error " + std::to_string(status.code);
  std::string text = FromWide({buffer, size}).str();
  text.erase(text.find_last_not_of(" \r\n") + 1);
  return text;
}

}  // namespace tolven::platform
