#include "platform/rename-windows.h"

#include "platform/long-path.h"

namespace tolven::platform {

namespace {

// The system replaces and removes no file with the read-only attribute. Cleared here for one call;
// what the name stands for afterwards has it again, unless told otherwise.
class ReadOnlyLifted {
 public:
  explicit ReadOnlyLifted(const PathArgument& path) : path_(path) {
    DWORD attributes = 0;
    if (!AttributesOf(path, attributes).ok()) return;
    if ((attributes & FILE_ATTRIBUTE_READONLY) == 0) return;
    const DWORD rest = attributes & ~DWORD{FILE_ATTRIBUTE_READONLY};
    lifted_ = ::SetFileAttributesW(path.c_str(), rest == 0 ? FILE_ATTRIBUTE_NORMAL : rest) != FALSE;
  }
  ~ReadOnlyLifted() {
    DWORD attributes = 0;
    if (!lifted_ || !AttributesOf(path_, attributes).ok()) return;
    ::SetFileAttributesW(path_.c_str(), attributes | FILE_ATTRIBUTE_READONLY);
  }
  ReadOnlyLifted(const ReadOnlyLifted&) = delete;
  ReadOnlyLifted& operator=(const ReadOnlyLifted&) = delete;

  void Forget() { lifted_ = false; }

 private:
  const PathArgument& path_;
  bool lifted_ = false;
};

Status Move(const PathArgument& from, const PathArgument& to, DWORD flags) {
  return StatusOf(::MoveFileExW(from.c_str(), to.c_str(), flags));
}

// A name beside `path` that nobody else draws.
ustring NameBeside(const ustring& path) {
  LARGE_INTEGER count{};
  ::QueryPerformanceCounter(&count);
  std::string name = "~" + std::to_string(::GetCurrentProcessId()) + "-" +
                     std::to_string(::GetCurrentThreadId()) + "-" + std::to_string(count.QuadPart);
  std::string text = PlainPath(get_extened_path(path)).str();
  text.erase(text.find_last_of('\\') + 1);
  return ustring(text + name);
}

// The system takes the new spelling for the old name. Both steps keep to names that are free.
Status Respell(const ustring& from, const ustring& to, DWORD flags) {
  const DWORD keeping = flags & ~DWORD{MOVEFILE_REPLACE_EXISTING};
  const PathArgument old_name(from);
  const PathArgument new_name(to);
  const PathArgument between(NameBeside(to));
  Status status = Move(old_name, between, keeping);
  if (!status.ok()) return status;
  status = Move(between, new_name, keeping);
  if (!status.ok()) (void)Move(between, old_name, keeping);
  return status;
}

}  // namespace

Status RenameNode(const ustring& from, const ustring& to, DWORD flags) {
  const PathArgument old_name(from);
  const PathArgument new_name(to);
  if (!old_name.status().ok()) return old_name.status();
  if (!new_name.status().ok()) return new_name.status();
  if (DifferOnlyInCase(from, to)) return Respell(from, to, flags);
  if ((flags & MOVEFILE_REPLACE_EXISTING) == 0) return Move(old_name, new_name, flags);
  const ReadOnlyLifted lifted(new_name);
  return Move(old_name, new_name, flags);
}

Status RemoveNode(const PathArgument& path, bool folder) {
  DWORD attributes = 0;
  Status status = AttributesOf(path, attributes);
  if (!status.ok()) return status;
  const bool is_folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  // A link to a folder may be removed either way, by the call for folders.
  const bool is_link = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  if (folder && !is_folder) return StatusFromError(ERROR_DIRECTORY);
  if (!folder && is_folder && !is_link) return {ErrorKind::kIsDirectory, ERROR_ACCESS_DENIED};
  ReadOnlyLifted lifted(path);
  status = StatusOf(is_folder ? ::RemoveDirectoryW(path.c_str()) : ::DeleteFileW(path.c_str()));
  // The name may be free already for someone else's new object.
  if (status.ok()) lifted.Forget();
  return status;
}

}  // namespace tolven::platform
