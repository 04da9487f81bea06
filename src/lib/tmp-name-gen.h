// Draws names for temporary files: 8 characters that are safe in a path, from an RC4 stream keyed
// by the finest clock. Names of one process hardly ever repeat, but only an exclusive creation
// makes one its own. Any thread may draw.
#pragma once

#include <array>
#include <cstdint>

#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class TmpNameGen {
 public:
  static TmpNameGen& getInstance();

  TmpNameGen();
  TmpNameGen(const TmpNameGen&) = delete;
  TmpNameGen& operator=(const TmpNameGen&) = delete;

  ustring getTmpName();
  ustring getTmpPath(const ustring& prefix);  // prefix + "/" + name

 private:
  using Key = std::array<std::uint8_t, 256>;

  static Key get_key();
  void rc4_init(Key& key) REQUIRES(mutex_);
  std::array<std::uint8_t, 6> rc4_randomize() REQUIRES(mutex_);

  Mutex mutex_;
  std::array<std::uint8_t, 256> m_s_box GUARDED_BY(mutex_);
};

}  // namespace tolven
