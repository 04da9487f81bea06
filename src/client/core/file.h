// A local file or folder as it stood at the last look, and what handlers do with one. A plain
// value.
#pragma once

#include <cstdint>

#include "lib/file-op.h"
#include "ustring/ustring.h"

namespace tolven {

class File {
 public:
  // Looks at once. `case_sensitive`: a name that the disk spells otherwise does not exist.
  File(const ustring& file_path, bool case_sensitive);

  // Looks anew. False for an empty path and when the look failed; that nothing is there is no
  // failure.
  bool Stat();

  // Of the last look.
  bool Exists() const { return file_info.isExist; }
  // Whether it could be looked at. Only then it is gone when it does not exist.
  bool IsKnown() const { return is_known; }
  bool IsFile() const { return Exists() && file_info.type == FT_FILE; }
  bool IsDirectory() const { return Exists() && file_info.type == FT_DIR; }
  std::uint64_t GetSize() const { return file_info.size; }
  std::uint32_t GetLastModifiedTime() const { return file_info.mtime; }  // seconds since 1970
  std::uint32_t GetUid() const { return file_info.uid; }
  std::uint32_t GetGid() const { return file_info.gid; }
  std::uint32_t GetMode() const { return file_info.mode; }
  ustring GetName() const;  // the last component of the path
  const FILE_INFO& GetInfo() const { return file_info; }
  const ustring& GetPath() const { return path; }

  // Whether it could be opened so just now, asked each time. True for what does not exist.
  bool CanRead() const { return !isFileLocked(path, kLockRead); }
  bool CanWrite() const { return !isFileLocked(path, kLockWrite); }
  bool CanReadAndWrite() const { return !isFileLocked(path, kLockRead | kLockWrite); }

  // All look again afterwards.
  bool Delete();   // a folder with all it holds
  bool MakeDir();  // with the folders above it
  bool Rename(const ustring& to);
  bool SetLastModifiedTime(std::uint32_t mtime);

  bool operator==(const File& other) const { return path == other.path; }
  bool operator!=(const File& other) const { return !(*this == other); }

  // A new empty file in `dir`, which nobody removes by itself. Its path is empty after a failure.
  static File CreateTempFile(const ustring& dir);
  static ustring CreateTempFilePath(const ustring& dir);

 private:
  ustring path;
  bool is_case_sensitive;
  bool is_known = false;
  FILE_INFO file_info;
};

}  // namespace tolven
