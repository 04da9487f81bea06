#include <algorithm>
#include <limits>

#include "platform/attributes.h"
#include "platform/files.h"
#include "platform/long-path.h"
#include "platform/node-windows.h"
#include "platform/rename-windows.h"
#include "platform/service-slot.h"

namespace tolven::platform {

namespace {

constexpr std::size_t kLargestTransfer = std::size_t{1} << 30;

struct OpenCall {
  DWORD access;
  DWORD disposition;
  DWORD flags;
};

OpenCall CallFor(OpenMode mode) {
  switch (mode) {
    case OpenMode::kTruncate:
      return {GENERIC_WRITE, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN};
    case OpenMode::kAppend:
      return {FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE, OPEN_ALWAYS,
              FILE_ATTRIBUTE_NORMAL};
    case OpenMode::kModify:
      return {GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL};
    case OpenMode::kCreateExclusive:
      return {GENERIC_WRITE, CREATE_NEW, FILE_ATTRIBUTE_NORMAL};
    case OpenMode::kRead:
      break;
  }
  return {GENERIC_READ, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN};
}

Status RefusalOf(const PathArgument& path, DWORD code) {
  DWORD attributes = 0;
  if (code == ERROR_ACCESS_DENIED && AttributesOf(path, attributes).ok() &&
      (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return {ErrorKind::kIsDirectory, static_cast<int>(code)};
  }
  return StatusFromError(code);
}

HANDLE Create(const PathArgument& path, const OpenCall& call) {
  return ::CreateFileW(path.c_str(), call.access, kShareAll, nullptr, call.disposition, call.flags,
                       nullptr);
}

// The system does not make a file new over one with attributes that the call does not name.
bool IsHiddenFile(const PathArgument& path) {
  DWORD attributes = 0;
  return AttributesOf(path, attributes).ok() && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
         (attributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) != 0;
}

// What a replacement of the object asks for. Of a read-only file only its removal, since the
// attribute is cleared first.
DWORD ReplaceAccess(DWORD attributes) {
  return (attributes & FILE_ATTRIBUTE_READONLY) != 0 ? DELETE : GENERIC_WRITE | DELETE;
}

Status ChangeAttributes(const PathArgument& path, DWORD set, DWORD clear) {
  DWORD attributes = 0;
  const Status status = AttributesOf(path, attributes);
  if (!status.ok()) return status;
  const DWORD wanted = (attributes | set) & ~clear;
  if (wanted == attributes) return {};
  return StatusOf(::SetFileAttributesW(path.c_str(), wanted == 0 ? FILE_ATTRIBUTE_NORMAL : wanted));
}

class WindowsFiles : public Files {
 public:
  Status Open(const ustring& path, OpenMode mode, NativeFile& file) override {
    file = kInvalidFile;
    const PathArgument argument(path);
    if (!argument.status().ok()) return argument.status();
    const OpenCall call = CallFor(mode);
    HANDLE handle = Create(argument, call);
    DWORD code = handle == INVALID_HANDLE_VALUE ? ::GetLastError() : ERROR_SUCCESS;
    if (code == ERROR_ACCESS_DENIED && mode == OpenMode::kTruncate && IsHiddenFile(argument)) {
      handle = Create(argument, {call.access, TRUNCATE_EXISTING, call.flags});
      if (handle == INVALID_HANDLE_VALUE) code = ::GetLastError();
    }
    if (handle == INVALID_HANDLE_VALUE) return RefusalOf(argument, code);
    file = NativeOf(handle);
    return {};
  }

  Status Close(NativeFile file) override { return StatusOf(::CloseHandle(HandleOf(file))); }

  Status Read(NativeFile file, void* data, std::size_t size, std::size_t& got) override {
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min(size, kLargestTransfer));
    const BOOL result = ::ReadFile(HandleOf(file), data, wanted, &count, nullptr);
    got = count;
    if (result != FALSE) return {};
    got = 0;
    const DWORD code = ::GetLastError();
    return code == ERROR_HANDLE_EOF || code == ERROR_BROKEN_PIPE ? Status{} : StatusFromError(code);
  }

  Status Write(NativeFile file, const void* data, std::size_t size, std::size_t& written) override {
    const char* const bytes = static_cast<const char*>(data);
    written = 0;
    while (written < size) {
      DWORD count = 0;
      const auto wanted = static_cast<DWORD>(std::min(size - written, kLargestTransfer));
      if (::WriteFile(HandleOf(file), bytes + written, wanted, &count, nullptr) == FALSE) {
        return LastError();
      }
      if (count == 0) return StatusFromError(ERROR_WRITE_FAULT);
      written += count;
    }
    return {};
  }

  Status Seek(NativeFile file, std::uint64_t offset) override {
    LARGE_INTEGER place{};
    if (!ToSigned(offset, place)) return StatusFromError(ERROR_NEGATIVE_SEEK);
    return StatusOf(::SetFilePointerEx(HandleOf(file), place, nullptr, FILE_BEGIN));
  }

  Status Truncate(NativeFile file, std::uint64_t size) override {
    FILE_END_OF_FILE_INFO end{};
    if (!ToSigned(size, end.EndOfFile)) return StatusFromError(ERROR_INVALID_PARAMETER);
    return StatusOf(
        ::SetFileInformationByHandle(HandleOf(file), FileEndOfFileInfo, &end, sizeof end));
  }

  Status Sync(NativeFile file) override { return StatusOf(::FlushFileBuffers(HandleOf(file))); }

  Status StatFile(NativeFile file, NodeInfo& info) override {
    return InfoOfHandle(HandleOf(file), info);
  }

  std::unique_ptr<AppendWriter> NewAppendWriter() override { return NewWindowsAppendWriter(); }

  Status Stat(const ustring& path, NodeInfo& info) override { return Look(path, kOpenNode, info); }

  Status StatTarget(const ustring& path, NodeInfo& info) override {
    return Look(path, FILE_FLAG_BACKUP_SEMANTICS, info);
  }

  Status NameOnDisk(const ustring& path, ustring& name) override {
    const PathArgument argument(path);
    if (WindowsRootLength(path.view()) < path.size()) return FindName(argument, name);
    DWORD attributes = 0;
    const Status status = AttributesOf(argument, attributes);
    if (status.ok()) name = path;
    return status;
  }

  Status RealPath(const ustring& path, ustring& real) override {
    Status status;
    const NameLookUp look_up = [&status](const std::string& prefix, std::string& name) {
      ustring found;
      status = FindName(PathArgument(prefix), found);
      name = found.str();
      return status.ok();
    };
    DWORD attributes = 0;
    status = AttributesOf(PathArgument(path), attributes);
    ustring spelled;
    if (!status.ok() || !SpellPath(path, look_up, spelled)) return status;
    real = PathFromWide(ToWide(spelled));
    return {};
  }

  Status TryAccess(const ustring& path, Access access) override {
    const PathArgument argument(path);
    DWORD attributes = 0;
    const Status status = AttributesOf(argument, attributes);
    if (!status.ok()) return status;
    DWORD wanted = access == Access::kWrite ? 0 : GENERIC_READ;
    if (access != Access::kRead) wanted |= ReplaceAccess(attributes);
    ScopedHandle node;
    return OpenNode(argument, wanted, kOpenNode, node);
  }

  Status SetModifiedTime(const ustring& path, std::int64_t mtime_ns) override {
    ScopedHandle node;
    const Status status = OpenNode(PathArgument(path), FILE_WRITE_ATTRIBUTES, kOpenNode, node);
    if (!status.ok()) return status;
    const std::uint64_t ticks = ToFileTime(mtime_ns);
    const FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    return StatusOf(::SetFileTime(node.get(), nullptr, nullptr, &time));
  }

  // All that a mode can say here is whether the owner may write.
  Status SetMode(const ustring& path, std::uint32_t mode) override {
    NodeInfo info;
    const Status status = Stat(path, info);
    if (!status.ok()) return status;
    if (info.kind == NodeKind::kLink) return StatusFromError(ERROR_NOT_SUPPORTED);
    return info.kind == NodeKind::kDirectory ? Status{} : SetReadOnly(path, (mode & 0200) == 0);
  }

  std::uint32_t NewFileMode() override { return 0666; }

  Status SetReadOnly(const ustring& path, bool read_only) override {
    const DWORD bit = FILE_ATTRIBUTE_READONLY;
    return ChangeAttributes(PathArgument(path), read_only ? bit : 0, read_only ? 0 : bit);
  }

  Status SetHidden(const ustring& path) override {
    return ChangeAttributes(PathArgument(path), FILE_ATTRIBUTE_HIDDEN, 0);
  }

  Status Rename(const ustring& from, const ustring& to) override {
    return RenameNode(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
  }
  Status RenameUnsynced(const ustring& from, const ustring& to) override {
    return RenameNode(from, to, MOVEFILE_REPLACE_EXISTING);
  }
  Status RenameNoReplace(const ustring& from, const ustring& to) override {
    return RenameNode(from, to, 0);
  }

  Status RemoveFile(const ustring& path) override { return RemoveNode(PathArgument(path), false); }
  Status RemoveDirectory(const ustring& path) override {
    return RemoveNode(PathArgument(path), true);
  }

  Status MakeDirectory(const ustring& path) override {
    const PathArgument argument(path);
    if (!argument.status().ok()) return argument.status();
    return StatusOf(::CreateDirectoryW(argument.c_str(), nullptr));
  }
  Status MakeDirectoryMode(const ustring& path, std::uint32_t) override {
    return MakeDirectory(path);
  }

  Status SyncDirectory(const ustring&) override { return {}; }

  Status OpenDirectory(const ustring& path, bool want_info,
                       std::unique_ptr<DirReader>& reader) override {
    return ListFolder(PathArgument(path), Links::kFollow, want_info, reader);
  }
  Status OpenRealDirectory(const ustring& path, bool want_info,
                           std::unique_ptr<DirReader>& reader) override {
    return ListFolder(PathArgument(path), Links::kRefuse, want_info, reader);
  }

 private:
  static bool ToSigned(std::uint64_t number, LARGE_INTEGER& result) {
    result.QuadPart = static_cast<LONGLONG>(number);
    return number <= static_cast<std::uint64_t>(std::numeric_limits<LONGLONG>::max());
  }

  static Status Look(const ustring& path, DWORD flags, NodeInfo& info) {
    ScopedHandle node;
    const Status status = OpenNode(PathArgument(path), 0, flags, node);
    return status.ok() ? InfoOfHandle(node.get(), info) : status;
  }
};

using Slot = ServiceSlot<Files, WindowsFiles>;

}  // namespace

Files& files() { return Slot::Get(); }
Files* SetFiles(Files* files) { return Slot::Set(files); }

}  // namespace tolven::platform
