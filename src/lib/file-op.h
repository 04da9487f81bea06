// The one door to the local file system: functions on absolute UTF-8 paths that tell files from
// folders and links, create, copy, rename and remove them, and decide when two times count as
// equal.
//
// All return 0 on success and a negative number on failure unless told otherwise; absence is no
// error for FSStat, IsFileExist and FSRemove. Links are never followed. All may be called from any
// thread; FSInit is called before other threads use FSTimeEqual and FSUTime. Failures are logged as
// "file_op_debug".
#pragma once

#include <cstdint>
#include <memory>

#include "platform/files.h"
#include "ustring/ustring.h"

namespace tolven {

enum FILE_TYPE : int {
  FT_ERR = 0,
  FT_FILE = 1,
  FT_DIR = 2,
  FT_SLINK = 3,
  FT_HLINK = 4,
  FT_DEV = 5,
  FT_FIFO = 6,
  FT_SOCK = 7,
};

enum SYNC_FILE_TYPE : int { SFT_FILE = 0, SFT_DIR = 1 };

// Result of FSRename, FSMKDir and FSMKDirP for a name that the file system cannot hold.
inline constexpr int kNameNotSupported = -100;

struct FILE_INFO {
  ustring path;
  ustring name;
  FILE_TYPE type = FT_ERR;
  std::uint32_t mtime = 0;  // last write, seconds since 1970
  std::uint64_t size = 0;
  bool isExist = false;
  std::uint32_t uid = 0, gid = 0, mode = 0;
  // Beyond what is compared: the time in full, and which object it is.
  std::int64_t mtime_ns = 0;
  std::uint64_t volume_id = 0, file_id = 0;
};
// Existence, size, time in seconds, type, path and name; owners and modes do not count.
bool operator==(const FILE_INFO& a, const FILE_INFO& b);

// Takes note of the kind of volume that holds `path`: on one whose times have a resolution of 2
// seconds FSTimeEqual and FSUTime allow for that, in the whole process.
int FSInit(const ustring& path);
int FSInitialize(std::uint32_t uid, std::uint32_t gid);  // no effect
int FSChown(const ustring& path);                        // no effect
// Whether the volume's times are that coarse; false when it cannot be told.
bool IsMSDOS(const ustring& path);
bool isMountPoint(const ustring& path);  // a network drive

// With `do_case_check` a path whose last component differs from the disk's spelling does not exist.
bool IsFileExist(const ustring& path, bool do_case_check);
int FSStat(const ustring& path, FILE_INFO& info, bool do_case_check);

// What isFileLocked asks for, in the bits of the system's home platform.
inline constexpr std::uint32_t kLockRead = 0x80000000;
inline constexpr std::uint32_t kLockWrite = 0x40000000;
// Whether an existing object cannot be opened so just now, by permission or because someone has it.
bool isFileLocked(const ustring& path, std::uint32_t flag);

// Sets the time of the last write; `atime` is ignored.
int FSUTime(const ustring& path, std::uint32_t atime, std::uint32_t mtime);
bool FSTimeEqual(std::uint32_t a, std::uint32_t b);

// Contents alone: the caller sets times. A file of that name is overwritten; after a failure it may
// hold a part. -1 when both are one file, which stays whole.
int FSCopy(const ustring& from, const ustring& to, bool isDelOrigin);
// Replaces `to`. kNameNotSupported when `to` cannot exist on its file system, else -1.
int FSRename(const ustring& from, const ustring& to, bool do_case_check);
// -1 also when `to` exists; it is never replaced.
int FSRenameNoReplace(const ustring& from, const ustring& to);

// What puts a new file in place without a moment in which its name stands for less than a whole
// file. FSFinish gives the finished file its permission bits and flushes what it holds.
// FSMoveIntoPlace then renames it and flushes the folder: with `replace` over what is there, else
// kNameTaken when there is something; kNameNotSupported as for FSRename, else -1.
inline constexpr int kNameTaken = -2;
int FSFinish(const ustring& path, std::uint32_t mode);
int FSMoveIntoPlace(const ustring& from, const ustring& to, bool replace);
// Replaces `to`, and leaves it to the system when that reaches the disk: for what may be lost. 0 or
// -1.
int FSRenameUnsynced(const ustring& from, const ustring& to);
// Makes a folder and those above it that are missing; returns once they are on the disk. Results as
// of FSMKDir.
int FSMakeFolder(const ustring& path);
// The bits for FSFinish of a file that replaces nothing.
std::uint32_t FSNewFileMode();

// Whether both looks saw the same object unchanged: its kind, size and identity, and its time as
// fine as the file system has it.
bool IsUntouched(const FILE_INFO& before, const FILE_INFO& now);

// An existing folder is success.
int FSMKDir(const ustring& path, bool isCreateParent);
// Every missing folder on the way. What stands there and is no folder is removed when
// `blForceCreate`, else the result is -1; a link to a folder counts as one. `uid`, `gid`, `mode`
// and `endptr` have no effect.
int FSMKDirP(const ustring& path, void* endptr, bool blForceCreate, int uid, int gid,
             std::uint32_t mode);

// Into the desktop's recycle bin when `allowundo` and there is one, else for good; folders with all
// they hold, links below them removed and not entered. -3 when the bin refused.
int FSRemove(const ustring& path, bool allowundo);

// A new empty file `prefix`/NAME, mode 0600, that nobody else has. -1 also for a prefix that is
// empty or a root.
int FSMktemp(const ustring& prefix, ustring& path);
int FSCreateTempPath(const ustring& prefix, ustring& path);  // the name alone

// Gives a path the spelling it has on disk.
int FSGetRealPath(ustring& path);

// Calls `fn` for `dir` and for everything below it, a folder before its content. A non-zero answer
// ends the walk of the folder around that path; for `dir` itself the result is then -2. A missing
// `dir` or one that is no folder is 0 after the call for itself, one that cannot be read -1.
using FN_ACT_TRAVERSE_DIR = int (*)(const ustring& path, void* priv);
int TraverseDir(const ustring& dir, FN_ACT_TRAVERSE_DIR fn, void* pPriv);

struct DIR_ENTRY {
  ustring name;
  FILE_TYPE type = FT_ERR;
  std::uint32_t mtime = 0;  // both 0 without kDirStat; size is that of files
  std::uint64_t size = 0;
};
inline constexpr int kDirStat = 1;
struct DIR_HANDLE {
  ustring path;
  int flag = 0;
  std::unique_ptr<platform::DirReader> handle;
};
int FSOpenDir(const ustring& path, int flag, DIR_HANDLE& dh);  // never fails
// 1 with an entry ("." and ".." among them), 0 at the end, -1 when the folder cannot be read.
int FSReadDir(DIR_HANDLE& dh, DIR_ENTRY& entry);
// 1, 0 or -1 as above; `missing` tells that the folder does not exist.
int FSReadDir(DIR_HANDLE& dh, DIR_ENTRY& entry, bool& missing);
int FSCloseDir(DIR_HANDLE& dh);

}  // namespace tolven
