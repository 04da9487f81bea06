#include "rsapi-cpp/xio.h"

#include <cstdio>
#include <new>

namespace tolven {

namespace {

thread_local int last_error = 0;

int Fail(int line, const char* call, const platform::Status& status) {
  last_error = status.code;
  std::fprintf(stderr, "xio (%d): %s: Error Code %d\n", line, call, status.code);
  return -1;
}

}  // namespace

int fd_error() { return last_error; }

fd_aio_t::fd_aio_t() : writer(platform::files().NewAppendWriter()) {
  if (writer == nullptr) throw std::bad_alloc();
}

fd_aio_t::~fd_aio_t() = default;

bool fd_is_open(const fd_t& fd) { return fd.handle != platform::kInvalidFile; }

int fd_open_read(const ustring& path, fd_t& fd) {
  const platform::Status status =
      platform::files().Open(path, platform::OpenMode::kRead, fd.handle);
  return status.ok() ? 0 : Fail(__LINE__, "open for reading", status);
}

int fd_open_write(const ustring& path, fd_t& fd) {
  const platform::Status status =
      platform::files().Open(path, platform::OpenMode::kTruncate, fd.handle);
  return status.ok() ? 0 : Fail(__LINE__, "open for writing", status);
}

int fd_close(fd_t& fd) {
  if (!fd_is_open(fd)) return 0;
  const platform::Status status = platform::files().Close(fd.handle);
  fd.handle = platform::kInvalidFile;
  return status.ok() ? 0 : Fail(__LINE__, "close", status);
}

fd_ssize_t fd_read(const fd_t& fd, void* data, std::size_t size) {
  std::size_t got = 0;
  const platform::Status status = platform::files().Read(fd.handle, data, size, got);
  return status.ok() ? static_cast<fd_ssize_t>(got) : Fail(__LINE__, "read", status);
}

int fd_seek(const fd_t& fd, std::uint64_t offset) {
  const platform::Status status = platform::files().Seek(fd.handle, offset);
  return status.ok() ? 0 : Fail(__LINE__, "seek", status);
}

int fd_sync(const fd_t& fd) {
  if (!fd_is_open(fd)) return -1;
  const platform::Status status = platform::files().Sync(fd.handle);
  return status.ok() ? 0 : Fail(__LINE__, "sync", status);
}

int fd_stat(const fd_t& fd, std::uint64_t& size) {
  platform::NodeInfo info;
  const platform::Status status = platform::files().StatFile(fd.handle, info);
  if (!status.ok()) return Fail(__LINE__, "stat", status);
  size = info.size;
  return 0;
}

int fd_aio_write(fd_aio_t& aio, const fd_t& fd, const void* data, std::size_t size) {
  const platform::Status status = aio.writer->Begin(fd.handle, data, size);
  if (!status.ok()) return Fail(__LINE__, "write", status);
  aio.file = fd.handle;
  return 0;
}

fd_ssize_t fd_aio_wait(fd_aio_t& aio) {
  if (aio.file == platform::kInvalidFile) return -1;
  aio.file = platform::kInvalidFile;
  std::size_t written = 0;
  const platform::Status status = aio.writer->Wait(written);
  return status.ok() ? static_cast<fd_ssize_t>(written) : Fail(__LINE__, "wait for write", status);
}

fd_ssize_t fd_write(const fd_t& fd, const void* data, std::size_t size) {
  fd_aio_t aio;
  return fd_aio_write(aio, fd, data, size) == 0 ? fd_aio_wait(aio) : -1;
}

}  // namespace tolven
