// The outcome of a platform call: a class of error that portable code may act on, and the system's
// own number, which only ever reaches a log line.
#pragma once

#include <string>

namespace tolven::platform {

enum class ErrorKind {
  kNone,
  kNotFound,      // no such file, folder, path or process
  kAccessDenied,  // permission; on Windows also a delete that is still pending
  kBusy,          // shared with someone who does not allow it, locked, or in use
  kExists,        // the name is taken
  kNotDirectory,  // a component that must be a folder is none
  kIsDirectory,   // a folder where a file was wanted
  kNotEmpty,      // a folder that still has children
  kNameTooLong,   // a name or path that the file system cannot hold
  kNoSpace,       // disk full or quota reached
  kReadOnly,      // read-only file system or volume
  kTooMany,       // out of descriptors, handles, watches or memory
  kWouldBlock,    // a non-blocking call has nothing to do now
  kInProgress,    // a non-blocking connect is under way
  kTimedOut,
  kRefused,  // connection refused, reset, or peer gone
  kAddressInUse,
  kNotSupported,  // the service does not exist on this system
  kInvalid,       // bad handle or argument
  kOther,
};

struct [[nodiscard]] Status {
  ErrorKind kind = ErrorKind::kNone;
  int code = 0;  // errno or GetLastError(); 0 for success

  bool ok() const { return kind == ErrorKind::kNone; }
  bool is(ErrorKind k) const { return kind == k; }
};

// The system's text for a status, in UTF-8, without a line end.
std::string StatusText(const Status& status);

}  // namespace tolven::platform
