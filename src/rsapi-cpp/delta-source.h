// The commands and literal data of a delta file, read from its beginning to its end.
#pragma once

#include <cstdint>

#include "rsapi-cpp/delta-command.h"
#include "rsapi-cpp/xio-bio.h"

namespace tolven {

// Results are 0 or a negative code of FileReader.
class DeltaSource {
 public:
  DeltaSource() = default;
  ~DeltaSource() { fd_close(fd_); }
  DeltaSource(const DeltaSource&) = delete;
  DeltaSource& operator=(const DeltaSource&) = delete;

  // Opens the file and checks its magic.
  int open(const ustring& path);
  // 1 with a command, 0 at the end command. The data of a literal lies wholly in the file.
  int readPatchCommand(PatchCommand& command);
  // The next bytes of the literal whose command was read last.
  int readLiteral(void* data, std::size_t size);

 private:
  int read(void* data, std::size_t size);

  fd_t fd_;
  fd_bio_t bio_;
  std::uint64_t size_ = 0, offset_ = 0;  // of the file, and of what comes next in it
};

}  // namespace tolven
