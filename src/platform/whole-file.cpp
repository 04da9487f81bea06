#include "platform/whole-file.h"

#include "platform/files.h"

namespace tolven::platform {

namespace {

constexpr std::size_t kReadSize = 16384;

Status WriteDraft(const ustring& draft, std::string_view text, std::uint32_t mode) {
  ScopedFile file;
  std::size_t written = 0;
  Status status = files().Open(draft, OpenMode::kCreateExclusive, *file.receive());
  if (status.is(ErrorKind::kExists)) {  // a crash left it
    status = files().RemoveFile(draft);
    if (status.ok()) status = files().Open(draft, OpenMode::kCreateExclusive, *file.receive());
  }
  if (status.ok()) status = files().SetMode(draft, mode == 0 ? files().NewFileMode() : mode);
  if (status.ok()) status = files().Write(file.get(), text.data(), text.size(), written);
  if (status.ok()) status = files().Sync(file.get());
  // Some file systems report a full disk only now.
  return status.ok() ? files().Close(file.Release()) : status;
}

}  // namespace

Status ReadWholeFile(const ustring& path, std::string& text) {
  text.clear();
  ScopedFile file;
  Status status = files().Open(path, OpenMode::kRead, *file.receive());
  for (std::size_t got = 1; status.ok() && got != 0;) {
    const std::size_t size = text.size();
    text.resize(size + kReadSize);
    status = files().Read(file.get(), text.data() + size, kReadSize, got);
    text.resize(size + (status.ok() ? got : 0));
  }
  return status;
}

Status ReplaceWholeFile(const ustring& path, std::string_view text, std::uint32_t mode) {
  const ustring draft = path + ".new";
  Status status = WriteDraft(draft, text, mode);
  if (status.ok()) status = files().Rename(draft, path);
  if (!status.ok()) (void)files().RemoveFile(draft);
  return status;
}

}  // namespace tolven::platform
