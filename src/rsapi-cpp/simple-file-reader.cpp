#include "rsapi-cpp/simple-file-reader.h"

#include <new>

#include "rsapi-cpp/handler-output.h"
#include "rsapi-cpp/xio.h"

namespace tolven {

int SimpleFileReader::readFile() {
  processed_size_ = 0;
  if (file_.empty()) return ERROR_ARGUMENT;
  if (begin() < 0) return ERROR_HANDLER_CALL;
  const int result = readPieces();
  const int ended = end();
  return result < 0 ? result : ended;
}

int SimpleFileReader::readPieces() {
  fd_t fd;
  if (fd_open_read(file_, fd) < 0) {
    api_fail(__LINE__, "fd_open_read");
    return ERROR_SYSTEM_CALL;
  }
  const platform::ScopedFile closes(fd.handle);
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[kPieceSize]);
  if (buffer == nullptr) return ERROR_SYSTEM_CALL;
  for (;;) {
    if (aborted()) return ERROR_ABORT;
    const fd_ssize_t got = fd_read(fd, buffer.get(), kPieceSize);
    if (got < 0) {
      api_fail(__LINE__, "fd_read");
      return ERROR_SYSTEM_CALL;
    }
    if (got == 0) return 0;
    const auto size = static_cast<std::size_t>(got);
    if (feed(buffer.get(), size) < 0) return ERROR_HANDLER_CALL;
    processed_size_ += size;
  }
}

}  // namespace tolven
