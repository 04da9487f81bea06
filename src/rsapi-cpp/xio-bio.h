// Buffered reading from and writing to a file. The file is not owned.
#pragma once

#include <cstddef>
#include <memory>

#include "rsapi-cpp/xio-buffer.h"

namespace tolven {

struct fd_bio_t {
  fd_t fd;
  std::unique_ptr<buffer_t> w_buffer, r_buffer;
};

// Makes both buffers; 0, or -1 without memory.
int fd_bio_load(fd_bio_t& bio, const fd_t& fd, std::size_t capacity);
void fd_bio_unload(fd_bio_t& bio);
// Exactly `size` bytes; -1 when the file ends before.
int fd_bio_read(fd_bio_t& bio, void* data, std::size_t size);
int fd_bio_write(fd_bio_t& bio, const void* data, std::size_t size);
int fd_bio_flush(fd_bio_t& bio);

}  // namespace tolven
