#include "platform/fault-plan.h"

namespace tolven::platform {

void FaultPlan::FailNth(const std::string& call, unsigned nth, ErrorKind kind, Lasting lasting) {
  MutexLock lock(mutex_);
  faults_.push_back({call, nth - 1, kind, lasting, false});
}

void FaultPlan::Clear() {
  MutexLock lock(mutex_);
  faults_.clear();
  counts_.clear();
  calls_ = 0;
  failures_ = 0;
}

unsigned FaultPlan::calls() const {
  MutexLock lock(mutex_);
  return calls_;
}

unsigned FaultPlan::calls(const std::string& call) const {
  MutexLock lock(mutex_);
  const auto it = counts_.find(call);
  return it == counts_.end() ? 0 : it->second;
}

unsigned FaultPlan::failures() const {
  MutexLock lock(mutex_);
  return failures_;
}

Status FaultPlan::Next(const char* call) {
  MutexLock lock(mutex_);
  ++calls_;
  ++counts_[call];
  Status status;
  // Every fault counts this call, also when an earlier one already makes it fail.
  for (Fault& fault : faults_) {
    if (fault.spent || (!fault.call.empty() && fault.call != call)) continue;
    if (fault.left > 0) {
      --fault.left;
      continue;
    }
    fault.spent = fault.lasting == Lasting::kOnce;
    if (status.ok()) status.kind = fault.kind;
  }
  if (!status.ok()) ++failures_;
  return status;
}

}  // namespace tolven::platform
