// What the delta engine needs of files: reads from the front, writes at the end that overlap with
// the next read, a seek and a size. Thin functions over the platform's file service.
//
// Results are 0 or a byte count for success and -1 for a failure, which writes a line with the
// system's error number to standard error. Each object belongs to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/files.h"
#include "ustring/ustring.h"

namespace tolven {

// A file; the destructor does not close it.
struct fd_t {
  platform::NativeFile handle = platform::kInvalidFile;
};

// An append that may be under way; one at a time.
struct fd_aio_t {
  fd_aio_t();  // throws std::bad_alloc when the platform has no writer to give
  ~fd_aio_t();
  fd_aio_t(const fd_aio_t&) = delete;
  fd_aio_t& operator=(const fd_aio_t&) = delete;

  std::unique_ptr<platform::AppendWriter> writer;
  platform::NativeFile file = platform::kInvalidFile;  // of the write under way
};

using fd_ssize_t = std::ptrdiff_t;

// The system's number of this thread's last failure here.
int fd_error();

bool fd_is_open(const fd_t& fd);
// An existing file, shared with everyone.
int fd_open_read(const ustring& path, fd_t& fd);
// Created or emptied.
int fd_open_write(const ustring& path, fd_t& fd);
// Closes and makes invalid; 0 for a file that is not open.
int fd_close(fd_t& fd);
// The count; 0 at the end of the file only.
fd_ssize_t fd_read(const fd_t& fd, void* data, std::size_t size);
int fd_seek(const fd_t& fd, std::uint64_t offset);
int fd_sync(const fd_t& fd);
int fd_stat(const fd_t& fd, std::uint64_t& size);

// Starts a write at the end of the file. `data` stays untouched until fd_aio_wait().
int fd_aio_write(fd_aio_t& aio, const fd_t& fd, const void* data, std::size_t size);
// Ends the write under way: its count, or -1, also when there is none.
fd_ssize_t fd_aio_wait(fd_aio_t& aio);
// Both together.
fd_ssize_t fd_write(const fd_t& fd, const void* data, std::size_t size);

}  // namespace tolven
