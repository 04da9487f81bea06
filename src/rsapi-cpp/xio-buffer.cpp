#include "rsapi-cpp/xio-buffer.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace tolven {

namespace {

constexpr std::size_t kDefaultCapacity = 0x2000;

// Where the free space begins, and how much of it lies in one piece.
std::size_t Tail(const buffer_t& buffer) { return (buffer.head + buffer.size) % buffer.capacity; }

std::size_t FreeRun(const buffer_t& buffer) {
  return std::min(buffer_left(buffer), buffer.capacity - Tail(buffer));
}

std::size_t ContentRun(const buffer_t& buffer) {
  return std::min(buffer.size, buffer.capacity - buffer.head);
}

void Drop(buffer_t& buffer, std::size_t count) {
  buffer.size -= count;
  buffer.head = buffer.size == 0 ? 0 : (buffer.head + count) % buffer.capacity;
}

}  // namespace

buffer_t::buffer_t(std::size_t wanted)
    : data(new char[wanted == 0 ? kDefaultCapacity : wanted]),
      capacity(wanted == 0 ? kDefaultCapacity : wanted) {}

std::size_t buffer_copy_in(buffer_t& buffer, const void* data, std::size_t size) {
  const char* const from = static_cast<const char*>(data);
  std::size_t moved = 0;
  while (moved < size && !buffer_is_full(buffer)) {
    const std::size_t count = std::min(size - moved, FreeRun(buffer));
    std::memcpy(buffer.data.get() + Tail(buffer), from + moved, count);
    buffer.size += count;
    moved += count;
  }
  return moved;
}

std::size_t buffer_copy_out(buffer_t& buffer, void* data, std::size_t size) {
  char* const to = static_cast<char*>(data);
  std::size_t moved = 0;
  while (moved < size && buffer.size > 0) {
    const std::size_t count = std::min(size - moved, ContentRun(buffer));
    std::memcpy(to + moved, buffer.data.get() + buffer.head, count);
    Drop(buffer, count);
    moved += count;
  }
  return moved;
}

bool buffer_is_full(const buffer_t& buffer) { return buffer.size == buffer.capacity; }
std::size_t buffer_left(const buffer_t& buffer) { return buffer.capacity - buffer.size; }
std::size_t buffer_size(const buffer_t& buffer) { return buffer.size; }

void buffer_clear(buffer_t& buffer) { buffer.size = buffer.head = 0; }

int buffer_resize(buffer_t& buffer, std::size_t capacity) {
  try {
    buffer_t larger(std::max(capacity, buffer.size));
    larger.size = buffer_copy_out(buffer, larger.data.get(), buffer.size);
    buffer = std::move(larger);
    return 0;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}

fd_ssize_t buffer_read_fd(buffer_t& buffer, const fd_t& fd) {
  if (buffer_is_full(buffer)) return 0;
  if (buffer.head > 0 && buffer.head + buffer.size <= buffer.capacity) {
    std::memmove(buffer.data.get(), buffer.data.get() + buffer.head, buffer.size);
    buffer.head = 0;
  }
  const fd_ssize_t count = fd_read(fd, buffer.data.get() + Tail(buffer), FreeRun(buffer));
  if (count > 0) buffer.size += static_cast<std::size_t>(count);
  return count;
}

fd_ssize_t buffer_write_fd(buffer_t& buffer, const fd_t& fd) {
  fd_ssize_t total = 0;
  while (buffer.size > 0) {
    const std::size_t run = ContentRun(buffer);
    const fd_ssize_t count = fd_write(fd, buffer.data.get() + buffer.head, run);
    if (count != static_cast<fd_ssize_t>(run)) return -1;
    Drop(buffer, run);
    total += count;
  }
  return total;
}

}  // namespace tolven
