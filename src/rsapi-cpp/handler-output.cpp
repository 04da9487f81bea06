#include "rsapi-cpp/handler-output.h"

#include <cstdio>

namespace tolven {

int api_fail(int line, const char* what) {
  std::fprintf(stderr, "api (%d): %s: Error Code %d\n", line, what, fd_error());
  return -1;
}

int HandlerOutput::open(const ustring& path) {
  return fd_open_write(path, fd_) < 0 ? api_fail(__LINE__, "fd_open_write") : 0;
}

int HandlerOutput::start(const void* data, std::size_t size) {
  if (size == 0) return 0;
  if (fd_aio_write(aio_, fd_, data, size) < 0) return api_fail(__LINE__, "fd_aio_write");
  in_flight_ = size;
  return 0;
}

int HandlerOutput::wait() {
  if (in_flight_ == 0) return 0;
  const auto wanted = static_cast<fd_ssize_t>(in_flight_);
  in_flight_ = 0;
  return fd_aio_wait(aio_) != wanted ? api_fail(__LINE__, "fd_aio_wait") : 0;
}

int HandlerOutput::close() {
  const int written = wait();
  if (fd_close(fd_) < 0) return api_fail(__LINE__, "fd_close");
  return written;
}

}  // namespace tolven
