// Files and folders, as the whole system sees them: one service with one implementation for each
// platform. Paths are absolute UTF-8 with "/" as separator ("\" too on Windows, where they are
// turned into the long form that lifts the 260-character limit).
//
// Every call may be made from any thread; a handle belongs to one thread at a time. No call throws
// but for std::bad_alloc. Handles are not inherited by child processes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/status.h"
#include "ustring/ustring.h"

namespace tolven::platform {

// A file descriptor or a HANDLE.
using NativeFile = std::intptr_t;
inline constexpr NativeFile kInvalidFile = -1;

enum class OpenMode {
  kRead,             // existing file, for reading; shared with everyone, sequential access
  kTruncate,         // for writing, created or emptied
  kAppend,           // for writing at the end, created when missing
  kModify,           // existing file, for reading and writing at any place
  kCreateExclusive,  // for writing, must not exist (kExists otherwise), mode 0600
};

enum class NodeKind { kFile, kDirectory, kLink, kDevice, kFifo, kSocket };

// What one look at a name gives. Links are never followed.
struct NodeInfo {
  NodeKind kind = NodeKind::kFile;
  std::uint64_t size = 0;       // bytes of a file; 0 for everything else
  std::int64_t mtime_ns = 0;    // last write, nanoseconds since 1970
  std::uint64_t volume_id = 0;  // with file_id: the same object as long as both agree
  std::uint64_t file_id = 0;
  std::uint32_t uid = 0, gid = 0;
  std::uint32_t mode = 0;  // permission bits; on Windows 0666 or 0444 by the read-only attribute
  // Windows attributes; on Linux `system` is told of devices, FIFOs and sockets, the rest is false.
  bool hidden = false, system = false, offline = false, temporary = false, read_only = false;
};

struct DirItem {
  ustring name;
  NodeInfo info;  // filled when the reader was opened with `want_info`, else only `kind`
};

// Lists one folder in the platform's order, "." and ".." included.
class DirReader {
 public:
  virtual ~DirReader() = default;
  // One item: `done` tells that there is none left. An error is never taken for the end. An item
  // that vanished between the listing and its look is left out.
  virtual Status Next(DirItem& item, bool& done) = 0;
};

// Appends to a file in the background: one write at a time is in flight.
class AppendWriter {
 public:
  virtual ~AppendWriter() = default;
  // Starts a write of `size` bytes at the end of `file`; `data` stays untouched until Wait().
  virtual Status Begin(NativeFile file, const void* data, std::size_t size) = 0;
  // Ends the write in flight. `written` is its byte count.
  virtual Status Wait(std::size_t& written) = 0;
};

// What isFileLocked asks of an existing file.
enum class Access { kRead, kWrite, kReadWrite };

class Files {
 public:
  virtual ~Files() = default;

  virtual Status Open(const ustring& path, OpenMode mode, NativeFile& file) = 0;
  virtual Status Close(NativeFile file) = 0;
  // `got` is 0 at the end of the file only.
  virtual Status Read(NativeFile file, void* data, std::size_t size, std::size_t& got) = 0;
  // Writes everything or fails; `written` tells how much went out before the failure.
  virtual Status Write(NativeFile file, const void* data, std::size_t size,
                       std::size_t& written) = 0;
  virtual Status Seek(NativeFile file, std::uint64_t offset) = 0;
  virtual Status Truncate(NativeFile file, std::uint64_t size) = 0;
  // The content is on the disk when this returns.
  virtual Status Sync(NativeFile file) = 0;
  // Lets the system begin to write the changed bytes of a range to the disk, without waiting for
  // it: a later Sync has less to do. A hint, whose failure means nothing.
  virtual void StartWriteback(NativeFile, std::uint64_t /*offset*/, std::uint64_t /*size*/) {}
  virtual Status StatFile(NativeFile file, NodeInfo& info) = 0;
  virtual std::unique_ptr<AppendWriter> NewAppendWriter() = 0;

  // kNotFound when the name, or a folder above it, does not exist.
  virtual Status Stat(const ustring& path, NodeInfo& info) = 0;
  // The same for what a link or junction leads to; kNotFound when it leads nowhere.
  virtual Status StatTarget(const ustring& path, NodeInfo& info) = 0;
  // The last component of `path` as the disk spells it (they differ in case on Windows only).
  virtual Status NameOnDisk(const ustring& path, ustring& name) = 0;
  // `path` as the disk spells it in every component, short names made long.
  virtual Status RealPath(const ustring& path, ustring& real) = 0;
  // Whether an existing object could be opened so just now: kAccessDenied or kBusy when not.
  // On Linux kWrite asks for a writable folder around the object, since replacing and removing
  // need that and not a writable file.
  virtual Status TryAccess(const ustring& path, Access access) = 0;

  virtual Status SetModifiedTime(const ustring& path, std::int64_t mtime_ns) = 0;
  virtual Status SetMode(const ustring& path, std::uint32_t mode) = 0;
  // The permission bits that programs of this user give to a new file.
  virtual std::uint32_t NewFileMode() = 0;
  // Sets or clears the read-only attribute; on Linux the write bits of the owner.
  virtual Status SetReadOnly(const ustring& path, bool read_only) = 0;
  // No effect on Linux, where the leading dot serves.
  virtual Status SetHidden(const ustring& path) = 0;

  // Replaces `to`; `to` holds the old or the new object whatever happens, never neither. Returns
  // once the change is on the disk.
  virtual Status Rename(const ustring& from, const ustring& to) = 0;
  // The same for callers that sync the folders themselves.
  virtual Status RenameUnsynced(const ustring& from, const ustring& to) = 0;
  // Fails with kExists rather than replace `to`. The folders are the caller's to sync.
  virtual Status RenameNoReplace(const ustring& from, const ustring& to) = 0;
  // Removes a file or a link itself; a read-only attribute is cleared first.
  virtual Status RemoveFile(const ustring& path) = 0;
  // Removes an empty folder, or a link or junction to a folder, never what it points to.
  virtual Status RemoveDirectory(const ustring& path) = 0;
  virtual Status MakeDirectory(const ustring& path) = 0;
  virtual Status MakeDirectoryMode(const ustring& path, std::uint32_t mode) = 0;
  // Makes renames and creations below a folder durable. No effect on Windows.
  virtual Status SyncDirectory(const ustring& path) = 0;
  virtual Status OpenDirectory(const ustring& path, bool want_info,
                               std::unique_ptr<DirReader>& reader) = 0;
  // The same, but kNotDirectory when the name is a link or junction: for whoever removes what is
  // listed.
  virtual Status OpenRealDirectory(const ustring& path, bool want_info,
                                   std::unique_ptr<DirReader>& reader) = 0;
};

// The service in use: the real one, until a test puts another in its place. Not to be changed
// while other threads use it. SetFiles returns what was there before; null means the real one.
Files& files();
Files* SetFiles(Files* files);

// Closes a handle at the end of a scope.
class ScopedFile {
 public:
  ScopedFile() = default;
  explicit ScopedFile(NativeFile file) : file_(file) {}
  ~ScopedFile() { Reset(); }
  ScopedFile(ScopedFile&& other) noexcept : file_(other.Release()) {}
  ScopedFile& operator=(ScopedFile&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  ScopedFile(const ScopedFile&) = delete;
  ScopedFile& operator=(const ScopedFile&) = delete;

  NativeFile get() const { return file_; }
  bool valid() const { return file_ != kInvalidFile; }
  NativeFile* receive() { return &file_; }
  NativeFile Release() {
    const NativeFile file = file_;
    file_ = kInvalidFile;
    return file;
  }
  void Reset(NativeFile file = kInvalidFile) {
    if (file_ != kInvalidFile) (void)files().Close(file_);
    file_ = file;
  }

 private:
  NativeFile file_ = kInvalidFile;
};

}  // namespace tolven::platform
