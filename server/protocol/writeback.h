// Has a file that is being written go to the disk meanwhile, so that the sync in the end is short.
#pragma once

#include <cstdint>

#include "platform/files.h"

namespace tolven::server {

class Writeback {
 public:
  // So many bytes more are in the file.
  void Written(platform::NativeFile file, std::uint64_t size) {
    written_ += size;
    if (written_ - started_ < kStep) return;
    platform::files().StartWriteback(file, started_, written_ - started_);
    started_ = written_;
  }

 private:
  static constexpr std::uint64_t kStep = 8 * 1024 * 1024;

  std::uint64_t written_ = 0, started_ = 0;
};

}  // namespace tolven::server
