// The raw end of an I/O stack: something with a descriptor that can be read, written and waited
// for. The buffered layers in bio/ stand on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tolven::TolvenApplication {

class IOBase {
 public:
  enum Mode { MODE_WRITE = 1, MODE_READ = 2, MODE_READ_WRITE = 3 };

  // What read and write answer beside a count of bytes.
  static constexpr std::int64_t kFailed = -1;
  static constexpr std::int64_t kWouldBlock = -2;  // nothing can be moved now, wait with select

  virtual ~IOBase() = default;

  // The bytes moved, which may be fewer than asked; reading, 0 is the end.
  virtual std::int64_t read(void* data, std::size_t size) = 0;
  virtual std::int64_t write(const void* data, std::size_t size) = 0;
  virtual int sync() = 0;   // 0 or -1
  virtual int close() = 0;  // 0 or -1
  // Waits until the object can be used so: 1 ready, 0 when the seconds are over, -1 broken.
  virtual int select(Mode mode, int seconds) { return selectFor(mode, seconds * 1000); }
  // Another object on the same descriptor. The descriptor has no single owner: it ends with an
  // explicit close() of one of them, never with an object.
  virtual std::unique_ptr<IOBase> clone() const = 0;
  // select with a finer time.
  virtual int selectFor(Mode mode, int milliseconds) = 0;
};

}  // namespace tolven::TolvenApplication
