// One consumer of the bytes of a pass.
#pragma once

#include <cstddef>

namespace tolven {

// begin(), then update() and wait() for each piece, then end(); 0 or -1 each. A handler may go on
// writing from `data` until wait() returns. end() is called whatever came before it, once begin()
// of all handlers has succeeded.
class Handler {
 public:
  Handler() = default;
  virtual ~Handler() = default;
  Handler(const Handler&) = delete;
  Handler& operator=(const Handler&) = delete;

  virtual int begin() = 0;
  virtual int update(const void* data, std::size_t size) = 0;
  virtual int wait() = 0;
  virtual int end() = 0;
};

}  // namespace tolven
