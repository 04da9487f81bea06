#include "server/protocol/fill-file.h"

#include "platform/files.h"

namespace tolven::server {

bool FillFile(const ustring& path, const std::string& bytes) {
  platform::Files& files = platform::files();
  platform::ScopedFile file;
  std::size_t written = 0;
  return files.Open(path, platform::OpenMode::kTruncate, *file.receive()).ok() &&
         files.Write(file.get(), bytes.data(), bytes.size(), written).ok() &&
         written == bytes.size() && files.Close(file.Release()).ok();
}

}  // namespace tolven::server
