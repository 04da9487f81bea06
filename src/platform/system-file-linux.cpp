#include "platform/system-file-linux.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/errno-linux.h"

namespace tolven::platform {

Status ReadWhole(int fd, std::string& text) {
  text.clear();
  char buffer[16 * 1024];
  for (;;) {
    const auto offset = static_cast<off_t>(text.size());
    const ssize_t got = Retry([&] { return ::pread(fd, buffer, sizeof buffer, offset); });
    if (got < 0) return LastError();
    if (got == 0) return {};
    text.append(buffer, static_cast<std::size_t>(got));
  }
}

Status ReadSystemFile(const char* path, std::string& text) {
  text.clear();
  const int fd = Retry([path] { return ::open(path, O_RDONLY | O_CLOEXEC); });
  if (fd < 0) return LastError();
  const Status status = ReadWhole(fd, text);
  ::close(fd);
  return status;
}

}  // namespace tolven::platform
