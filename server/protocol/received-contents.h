// The sums of contents, made while these arrive, so that nothing is read again to learn them. The
// disk, too, begins with its part meanwhile.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "protocol/stream.h"
#include "rsapi-cpp/md4-hash-handler.h"
#include "server/protocol/hash-lane.h"
#include "server/protocol/writeback.h"
#include "server/store/sha256.h"

namespace tolven::server {

// Belongs to the thread of a connection.
class ReceivedContents : public PStream::ReceiveObserver {
 public:
  struct Sums {
    ustring path;  // of the file; empty when the bytes are kept here
    ustring md4;
    std::string sha256;
    std::string bytes;
  };

  // Forgets what an earlier request brought. With `keep_small`, the first small content of the next
  // one stays in memory.
  void Clear(bool keep_small = false);
  // Of a file that arrived completely, in one piece; null for others. The empty path is that of the
  // content that stayed in memory.
  const Sums* Find(const ustring& path) const;

  bool Keeps(std::uint64_t size) override;
  void Begin(const ustring& path, std::uint64_t size) override;
  void Stored(platform::NativeFile file, const char* data, std::size_t size) override;
  void End() override;

 private:
  // What is under way for one file.
  struct Reception {
    Reception() : md4(nullptr) {}

    Sums sums;
    MD4HashHandler md4;
    Sha256 sha256;
    Writeback writeback;
    // For large files, null without threads; they go before the sums that they make.
    std::unique_ptr<HashLane> md4_lane, sha256_lane;
  };

  bool keep_next_ = false;
  std::unique_ptr<Reception> reception_;
  std::vector<Sums> sums_;
};

}  // namespace tolven::server
