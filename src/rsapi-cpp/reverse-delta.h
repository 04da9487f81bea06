// The delta that turns a new file back into its basis, from the copies that made the new file.
#pragma once

#include <cstdint>
#include <vector>

#include "rsapi-cpp/xio-bio.h"

namespace tolven {

class ReverseDelta {
 public:
  // The new file's range at `new_start` is the basis's range at `start`. In the new file's order.
  void insertSameBlock(std::uint64_t start, std::uint64_t length, std::uint64_t new_start);

  // Writes the delta to `path`: copies of what both files share, the rest of the basis as
  // literals. 0, or -1 with a line on standard error.
  int write(const ustring& path, const fd_t& basis, std::uint64_t basis_size);

 private:
  struct Block {
    std::uint64_t start = 0, length = 0, new_start = 0;
  };

  // Orders the blocks by their place in the basis and trims them until none overlaps.
  void resolveOverlaps();
  int writeCommands(const fd_t& basis, std::uint64_t basis_size, fd_bio_t& out);
  int writeLiteralCommand(const fd_t& basis, std::uint64_t start, std::uint64_t length,
                          fd_bio_t& out);

  std::vector<Block> blocks_;
};

}  // namespace tolven
