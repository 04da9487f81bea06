// Which calls of wrapped services fail, and how many there were.
//
//   FaultPlan plan;
//   ForwardingFiles faulty(files(), plan.hook());
//   SetFiles(&faulty);
//   plan.FailNth("Write", 3, ErrorKind::kNoSpace);
//
// A test that fails each call once repeats its work with FailNth(1), FailNth(2) and so on, until
// failures() stays 0. One plan may serve several services; counting goes over all of them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/forwarding.h"
#include "platform/mutex.h"

namespace tolven::platform {

class FaultPlan {
 public:
  enum class Lasting { kOnce, kFromThenOn };

  // The `nth` call from now on, 1 being the next, fails with `kind`; all later ones too when it
  // lasts. `call` counts only calls of that name; empty counts all.
  void FailNth(unsigned nth, ErrorKind kind, Lasting lasting = Lasting::kOnce) {
    FailNth("", nth, kind, lasting);
  }
  void FailNth(const std::string& call, unsigned nth, ErrorKind kind,
               Lasting lasting = Lasting::kOnce);
  // Forgets the faults that are still to come, and all counts.
  void Clear();

  unsigned calls() const;
  unsigned calls(const std::string& call) const;
  unsigned failures() const;  // how many calls were made to fail

  CallHook hook() {
    return [this](const char* call) { return Next(call); };
  }

 private:
  struct Fault {
    std::string call;
    unsigned left = 0;  // calls to let through first
    ErrorKind kind = ErrorKind::kOther;
    Lasting lasting = Lasting::kOnce;
    bool spent = false;
  };

  Status Next(const char* call);

  mutable Mutex mutex_;
  std::vector<Fault> faults_ GUARDED_BY(mutex_);
  std::map<std::string, unsigned> counts_ GUARDED_BY(mutex_);
  unsigned calls_ GUARDED_BY(mutex_) = 0;
  unsigned failures_ GUARDED_BY(mutex_) = 0;
};

}  // namespace tolven::platform
