#pragma once

#include "libzentcat/lib/bio/buffered-io-base.h"
#include "platform/status.h"

namespace tolven::TolvenApplication {

// The layer of a plain connection.
class BufferedIO : public BufferedIOBase {
 public:
  int load(IOBase& io) override;
  void unload() override;
  // A remainder of a buffer's size or more goes straight into `data`.
  std::int64_t read(void* data, std::size_t size) override;
  // From a file to a socket the kernel moves the bytes; they never enter this process.
  std::int64_t sendfile(File& file, std::uint64_t offset, std::uint64_t length) override;

 protected:
  std::int64_t wait_and_write(const void* data, std::size_t size) override;

 private:
  // Reads until there are `at_least` bytes, and at most `size`; fewer after the end or a failure.
  std::int64_t wait_and_read(void* data, std::size_t size, std::size_t at_least);

  std::unique_ptr<LineBuffer<char>> m_rbuf;
};

}  // namespace tolven::TolvenApplication
