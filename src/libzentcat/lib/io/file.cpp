#include "libzentcat/lib/io/file.h"

namespace tolven::TolvenApplication {

std::int64_t File::read(void* data, std::size_t size) {
  std::size_t got = 0;
  if (!platform::files().Read(_fd, data, size, got).ok()) return kFailed;
  return static_cast<std::int64_t>(got);
}

std::int64_t File::write(const void* data, std::size_t size) {
  std::size_t written = 0;
  if (!platform::files().Write(_fd, data, size, written).ok()) return kFailed;
  return static_cast<std::int64_t>(written);
}

int File::sync() { return platform::files().Sync(_fd).ok() ? 0 : -1; }

int File::close() {
  if (_fd == platform::kInvalidFile) return 0;
  const bool closed = platform::files().Close(_fd).ok();
  _fd = platform::kInvalidFile;
  return closed ? 0 : -1;
}

std::unique_ptr<IOBase> File::clone() const { return std::make_unique<File>(_fd); }

int File::seek(std::uint64_t offset) { return platform::files().Seek(_fd, offset).ok() ? 0 : -1; }

}  // namespace tolven::TolvenApplication
