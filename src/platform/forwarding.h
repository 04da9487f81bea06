// Wrappers that hand every call of a service on to another one of its kind. Tests put one in the
// place of the real service and let chosen calls fail, or derive from it and change a few calls.
//
// The wrapped service and whatever the hook refers to must outlive the wrapper.
#pragma once

#include <functional>
#include <utility>

#include "platform/status.h"

namespace tolven::platform {

// Asked before each call, by the method's name, from the calling thread. With any status but
// success the call does not happen and fails with that status; a method without a Status returns
// what it would return for "not known" or "no", and one that cannot fail goes on all the same.
using CallHook = std::function<Status(const char* call)>;

class Forwarding {
 protected:
  explicit Forwarding(CallHook hook) : hook_(std::move(hook)) {}

  Status Ask(const char* call) const { return hook_ ? hook_(call) : Status{}; }
  bool Allows(const char* call) const { return Ask(call).ok(); }

  template <class Call>
  Status Do(const char* name, Call&& call) const {
    const Status status = Ask(name);
    return status.ok() ? call() : status;
  }

  const CallHook& hook() const { return hook_; }

 private:
  const CallHook hook_;
};

}  // namespace tolven::platform
