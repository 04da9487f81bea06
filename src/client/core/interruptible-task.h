#pragma once

#include <cstdint>

#include "client/core/abort-filter.h"
#include "client/core/barrier.h"
#include "client/core/task.h"
#include "client/core/working-type.h"
#include "lib/shared-pointer.h"
#include "ustring/ustring.h"

namespace tolven {

// A task that works on events of sessions: what the control thread asks of a worker.
class InterruptibleTask : public Task {
 public:
  using Task::SetAbort;
  // When the task works on an event that `filter` matches, it registers with `barrier`, drops that
  // event as soon as it can, and signals. Does not wait.
  virtual void SetAbort(const AbortFilter& filter, const shared_pointer<Barrier>& barrier) = 0;

  // What is being transferred, in bytes; zeros, no path and W_TYPE_NONE while nothing is.
  virtual void GetWorkingStatus(std::uint64_t& session, ustring& path, WorkingType& type,
                                std::uint64_t& sent, std::uint64_t& total) = 0;
};

}  // namespace tolven
