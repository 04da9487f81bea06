#include "rsapi-cpp/xio-bio.h"

#include <algorithm>
#include <new>

namespace tolven {

int fd_bio_load(fd_bio_t& bio, const fd_t& fd, std::size_t capacity) {
  try {
    bio.w_buffer = std::make_unique<buffer_t>(capacity);
    bio.r_buffer = std::make_unique<buffer_t>(capacity);
  } catch (const std::bad_alloc&) {
    fd_bio_unload(bio);
    return -1;
  }
  bio.fd = fd;
  return 0;
}

void fd_bio_unload(fd_bio_t& bio) {
  bio.w_buffer.reset();
  bio.r_buffer.reset();
}

int fd_bio_read(fd_bio_t& bio, void* data, std::size_t size) {
  if (size > buffer_size(*bio.r_buffer) && buffer_read_fd(*bio.r_buffer, bio.fd) < 0) return -1;
  char* to = static_cast<char*>(data);
  std::size_t left = size;
  const auto take = [&](std::size_t count) {
    to += count;
    left -= count;
  };
  take(buffer_copy_out(*bio.r_buffer, to, left));
  while (left > 0) {
    const fd_ssize_t count = fd_read(bio.fd, to, left);
    if (count <= 0) return -1;
    take(static_cast<std::size_t>(count));
  }
  return 0;
}

int fd_bio_write(fd_bio_t& bio, const void* data, std::size_t size) {
  if (size <= buffer_left(*bio.w_buffer)) {
    buffer_copy_in(*bio.w_buffer, data, size);
    return 0;
  }
  if (fd_bio_flush(bio) < 0) return -1;
  return fd_write(bio.fd, data, size) == static_cast<fd_ssize_t>(size) ? 0 : -1;
}

int fd_bio_flush(fd_bio_t& bio) { return buffer_write_fd(*bio.w_buffer, bio.fd) < 0 ? -1 : 0; }

}  // namespace tolven
