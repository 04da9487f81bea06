// The task that waits for volumes to go away and has the sessions on them reported. Messages go to
// "detector_vol_debug".
#pragma once

#include <cstdint>

#include "client/core/task.h"
#include "client/windows/win-run-loop.h"
#include "ustring/ustring.h"

namespace tolven {

class DetectorVol : public Task {
 public:
  DetectorVol() = default;
  // All sessions end with the tasks: none is reported any more, and none stands in the way of the
  // folder that its number gets next.
  ~DetectorVol() override;

  int Stop() override;
  void DoTask() override;

  // May be called from any thread. 0.
  int AddWatch(const ustring& path, std::uint64_t sess_id);
  void RemoveWatch(std::uint64_t sess_id);

 private:
  WinRunLoop m_run_loop;
};

}  // namespace tolven
