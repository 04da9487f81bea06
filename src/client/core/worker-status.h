#pragma once

#include <cstdint>

#include "client/core/working-type.h"
#include "ustring/ustring.h"

namespace tolven {

// What the control thread may know of a worker's event. The worker guards it.
struct WorkerStatus {
  void Clear() { *this = WorkerStatus(); }
  void IncreaseErrorCount() { ++err_count; }
  int GetErrorCount() const { return err_count; }
  void ClearErrorCount() { err_count = 0; }

  bool is_abortable = false;  // the handler can be interrupted and the event given back
  std::uint64_t session_id = 0;
  std::uint64_t connection_id = 0;
  ustring path;
  WorkingType working_type = W_TYPE_NONE;
  std::int64_t start_time = 0;  // seconds since 1970
  int err_count = 0;            // system errors since the event was taken up
};

}  // namespace tolven
