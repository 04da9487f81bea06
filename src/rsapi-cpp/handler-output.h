// The file that a handler makes: written at the end, one write at a time in flight.
#pragma once

#include <cstddef>

#include "rsapi-cpp/xio.h"

namespace tolven {

// All calls give 0 or -1; a failure has been told on standard error.
class HandlerOutput {
 public:
  HandlerOutput() = default;
  ~HandlerOutput() { close(); }
  HandlerOutput(const HandlerOutput&) = delete;
  HandlerOutput& operator=(const HandlerOutput&) = delete;

  int open(const ustring& path);
  // Starts a write; nothing for 0 bytes. `data` stays untouched until wait().
  int start(const void* data, std::size_t size);
  // Ends the write in flight, if there is one.
  int wait();
  int write(const void* data, std::size_t size) { return start(data, size) < 0 ? -1 : wait(); }
  int close();

 private:
  fd_t fd_;
  fd_aio_t aio_;
  std::size_t in_flight_ = 0;
};

// "api (line): what: Error Code n" with the number of the last failed file call; -1.
int api_fail(int line, const char* what);

}  // namespace tolven
