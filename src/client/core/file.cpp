#include "client/core/file.h"

#include "lib/temp-file.h"
#include "platform/paths.h"

namespace tolven {

File::File(const ustring& file_path, bool case_sensitive)
    : path(file_path), is_case_sensitive(case_sensitive) {
  Stat();
}

bool File::Stat() {
  file_info = FILE_INFO();
  is_known = !path.empty() && FSStat(path, file_info, is_case_sensitive) >= 0;
  return is_known;
}

ustring File::GetName() const {
  std::size_t begin = path.size();
  while (begin > 0 && !platform::IsPathSeparator(path[begin - 1])) --begin;
  return path.substr(begin);
}

bool File::Delete() {
  const bool removed = FSRemove(path, false) == 0;
  Stat();
  return removed;
}

bool File::MakeDir() { return FSMKDir(path, true) == 0 && Stat(); }

bool File::Rename(const ustring& to) {
  if (FSRename(path, to, is_case_sensitive) != 0) return false;
  path = to;
  return Stat();
}

bool File::SetLastModifiedTime(std::uint32_t mtime) {
  return FSUTime(path, mtime, mtime) == 0 && Stat();
}

File File::CreateTempFile(const ustring& dir) { return File(CreateTempFilePath(dir), false); }

ustring File::CreateTempFilePath(const ustring& dir) {
  TempFile file(dir);
  if (file.create() != 0) return ustring();
  file.convert_permanent();
  return file.getPath();
}

}  // namespace tolven
