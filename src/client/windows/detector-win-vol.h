// The task that waits for volumes to go away and has the sessions on them reported. Messages go to
// "detector_vol_debug", those of the system's notification to "runloop_debug".
#pragma once

#include <cstdint>
#include <memory>

#include "client/core/task.h"
#include "platform/volumes.h"
#include "ustring/ustring.h"

namespace tolven {

class DetectorVol : public Task {
 public:
  DetectorVol();
  // All sessions end with the tasks: none is reported any more, and none stands in the way of the
  // folder that its number gets next.
  ~DetectorVol() override;

  int Stop() override;
  void DoTask() override;

  // May be called from any thread. 0.
  int AddWatch(const ustring& path, std::uint64_t sess_id);
  void RemoveWatch(std::uint64_t sess_id);

 private:
  const std::unique_ptr<platform::VolumeMonitor> monitor_;
};

}  // namespace tolven
