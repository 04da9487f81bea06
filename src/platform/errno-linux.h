// From errno to Status, for the Linux side of the services only.
#pragma once

#include <cerrno>
#include <utility>

#include "platform/status.h"

namespace tolven::platform {

// `code` is an errno value; negative ones are the resolver's EAI_* numbers.
Status StatusFromErrno(int code);

inline Status LastError() { return StatusFromErrno(errno); }

// Status of a call that returns 0 for success and -1 with errno for failure.
inline Status StatusOf(int result) { return result == 0 ? Status{} : LastError(); }

// Repeats a system call that a signal interrupted.
template <class Call>
auto Retry(Call&& call) -> decltype(call()) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace tolven::platform
