#pragma once

#include "libzentcat/lib/io/io-base.h"
#include "platform/files.h"

namespace tolven::TolvenApplication {

// An open file as the source of sendfile. Like a Socket it does not own its handle.
class File : public IOBase {
 public:
  explicit File(platform::NativeFile fd) : _fd(fd) {}

  std::int64_t read(void* data, std::size_t size) override;
  std::int64_t write(const void* data, std::size_t size) override;
  int sync() override;
  int close() override;
  std::unique_ptr<IOBase> clone() const override;
  int selectFor(Mode, int) override { return 1; }  // a file is always ready

  int seek(std::uint64_t offset);  // 0 or -1
  platform::NativeFile fd() const { return _fd; }

 private:
  platform::NativeFile _fd;
};

}  // namespace tolven::TolvenApplication
