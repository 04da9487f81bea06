#pragma once

#include <atomic>

#include "lib/channel.h"
#include "libzentcat/lib/bio/buffered-io-base.h"

namespace tolven {

// Connects a channel's I/O with the flag that aborts it and the reporter of a file's progress.
// Neither is owned; both may be null. `*flag` may be set by any thread, the rest belongs to the
// channel's own.
class AbortHandler : public TolvenApplication::BufferedIOController {
 public:
  bool abort() override { return flag != nullptr && flag->load() != 0; }
  void updateRead(std::size_t) override {}
  void updateWrite(std::size_t bytes) override {
    if (reporter != nullptr) reporter->Report(bytes);
  }

  std::atomic<int>* flag = nullptr;
  Channel::WriterProgressReporter* reporter = nullptr;
};

}  // namespace tolven
