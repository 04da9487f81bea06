// A ring of bytes between a file and its reader or writer.
#pragma once

#include <cstddef>
#include <memory>

#include "rsapi-cpp/xio.h"

namespace tolven {

// `size` bytes of content begin at `head` and wrap around at `capacity`. The constructor throws
// std::bad_alloc when there is no memory; capacity 0 means 8192.
struct buffer_t {
  explicit buffer_t(std::size_t capacity = 0);

  std::unique_ptr<char[]> data;
  std::size_t capacity = 0, size = 0, head = 0;
};

// Move at most the free space, or at most the content, and return how much.
std::size_t buffer_copy_in(buffer_t& buffer, const void* data, std::size_t size);
std::size_t buffer_copy_out(buffer_t& buffer, void* data, std::size_t size);

bool buffer_is_full(const buffer_t& buffer);
std::size_t buffer_left(const buffer_t& buffer);  // free space
std::size_t buffer_size(const buffer_t& buffer);  // content
void buffer_clear(buffer_t& buffer);
// Keeps the content, so `capacity` is raised to hold it; 0, or -1 without memory.
int buffer_resize(buffer_t& buffer, std::size_t capacity);

// One read into the free space: the count, 0 at the end of the file or when the buffer is full.
fd_ssize_t buffer_read_fd(buffer_t& buffer, const fd_t& fd);
// Writes the content out and empties the buffer; the count.
fd_ssize_t buffer_write_fd(buffer_t& buffer, const fd_t& fd);

}  // namespace tolven
