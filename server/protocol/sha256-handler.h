// The SHA-256 of the bytes of a pass, made beside it, for a pass that writes them to a file: these
// go to the disk meanwhile.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/files.h"
#include "rsapi-cpp/handler.h"
#include "server/protocol/hash-lane.h"
#include "server/protocol/writeback.h"
#include "server/store/sha256.h"
#include "ustring/ustring.h"

namespace tolven::server {

class Sha256Handler : public Handler {
 public:
  // About `size` bytes go to the file `target`. end() stores the sum in `result`.
  Sha256Handler(ustring target, std::uint64_t size, std::string& result);

  int begin() override;
  int update(const void* data, std::size_t size) override;
  int wait() override { return 0; }
  int end() override;

 private:
  const ustring target_;
  const std::uint64_t size_;
  std::string& result_;
  Sha256 sum_;
  platform::ScopedFile file_;
  Writeback writeback_;
  std::unique_ptr<HashLane> lane_;  // for large files, null without a thread; goes before the sum
};

}  // namespace tolven::server
