// A layer over SQLite's default file system that asks a hook before each call that may fail.
#pragma once

#include <sqlite3.h>

#include <cstring>

#include "platform/forwarding.h"

namespace tolven::test {

class FaultyVfs {
 public:
  // In place for connections opened from now on, until the end of the scope. A write that fails
  // has written its first half.
  explicit FaultyVfs(platform::CallHook hook) {
    Hook() = std::move(hook);
    vfs_ = *Real();
    vfs_.zName = "faulty";
    vfs_.szOsFile = static_cast<int>(sizeof(File)) + Real()->szOsFile;
    vfs_.xOpen = Open;
    vfs_.xDelete = [](sqlite3_vfs*, const char* name, int sync) {
      return Allows("xDelete") ? Real()->xDelete(Real(), name, sync) : SQLITE_IOERR_DELETE;
    };
    vfs_.xAccess = [](sqlite3_vfs*, const char* name, int flags, int* result) {
      return Allows("xAccess") ? Real()->xAccess(Real(), name, flags, result) : SQLITE_IOERR_ACCESS;
    };
    sqlite3_vfs_register(&vfs_, 1);
  }
  ~FaultyVfs() {
    sqlite3_vfs_unregister(&vfs_);
    sqlite3_vfs_register(Real(), 1);
    Hook() = nullptr;
  }
  FaultyVfs(const FaultyVfs&) = delete;

  // While set, files open as on a disk that nobody may write.
  static bool& ReadOnly() {
    static bool read_only = false;
    return read_only;
  }

  FaultyVfs& operator=(const FaultyVfs&) = delete;

 private:
  struct File {
    sqlite3_file base;
    sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
    const sqlite3_io_methods* methods() { return real()->pMethods; }
  };
  static File* Of(sqlite3_file* file) { return reinterpret_cast<File*>(file); }

  static platform::CallHook& Hook() {
    static platform::CallHook hook;
    return hook;
  }
  static bool Allows(const char* call) { return !Hook() || Hook()(call).ok(); }
  static sqlite3_vfs* Real() {
    static sqlite3_vfs* const real = sqlite3_vfs_find(nullptr);
    return real;
  }

  static int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out) {
    file->pMethods = nullptr;
    if (!Allows("xOpen")) return SQLITE_CANTOPEN;
    if (ReadOnly() && (flags & SQLITE_OPEN_CREATE) != 0) {
      flags = (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
    }
    const int code = Real()->xOpen(Real(), name, Of(file)->real(), flags, out);
    if (Of(file)->methods() != nullptr) file->pMethods = &Methods();
    return code;
  }

  static sqlite3_io_methods& Methods() {
    static sqlite3_io_methods methods = {
        .iVersion = 2,
        .xClose = [](sqlite3_file* f) { return Of(f)->methods()->xClose(Of(f)->real()); },
        .xRead =
            [](sqlite3_file* f, void* data, int size, sqlite3_int64 at) {
              return Allows("xRead") ? Of(f)->methods()->xRead(Of(f)->real(), data, size, at)
                                     : SQLITE_IOERR_READ;
            },
        .xWrite =
            [](sqlite3_file* f, const void* data, int size, sqlite3_int64 at) {
              Of(f)->methods()->xWrite(Of(f)->real(), data, size / 2, at);
              return Allows("xWrite") ? Of(f)->methods()->xWrite(Of(f)->real(), data, size, at)
                                      : SQLITE_IOERR_WRITE;
            },
        .xTruncate =
            [](sqlite3_file* f, sqlite3_int64 size) {
              return Allows("xTruncate") ? Of(f)->methods()->xTruncate(Of(f)->real(), size)
                                         : SQLITE_IOERR_TRUNCATE;
            },
        .xSync =
            [](sqlite3_file* f, int flags) {
              return Allows("xSync") ? Of(f)->methods()->xSync(Of(f)->real(), flags)
                                     : SQLITE_IOERR_FSYNC;
            },
        .xFileSize =
            [](sqlite3_file* f, sqlite3_int64* size) {
              return Allows("xFileSize") ? Of(f)->methods()->xFileSize(Of(f)->real(), size)
                                         : SQLITE_IOERR_FSTAT;
            },
        .xLock =
            [](sqlite3_file* f, int level) {
              return Allows("xLock") ? Of(f)->methods()->xLock(Of(f)->real(), level)
                                     : SQLITE_IOERR_LOCK;
            },
        .xUnlock = [](sqlite3_file* f,
                      int level) { return Of(f)->methods()->xUnlock(Of(f)->real(), level); },
        .xCheckReservedLock =
            [](sqlite3_file* f, int* out) {
              return Of(f)->methods()->xCheckReservedLock(Of(f)->real(), out);
            },
        .xFileControl =
            [](sqlite3_file* f, int op, void* arg) {
              return Of(f)->methods()->xFileControl(Of(f)->real(), op, arg);
            },
        .xSectorSize = [](sqlite3_file* f) { return Of(f)->methods()->xSectorSize(Of(f)->real()); },
        .xDeviceCharacteristics =
            [](sqlite3_file* f) { return Of(f)->methods()->xDeviceCharacteristics(Of(f)->real()); },
        .xShmMap =
            [](sqlite3_file* f, int region, int size, int extend, void volatile** out) {
              return Allows("xShmMap")
                         ? Of(f)->methods()->xShmMap(Of(f)->real(), region, size, extend, out)
                         : SQLITE_IOERR_SHMMAP;
            },
        .xShmLock =
            [](sqlite3_file* f, int offset, int n, int flags) {
              return (flags & SQLITE_SHM_UNLOCK) != 0 || Allows("xShmLock")
                         ? Of(f)->methods()->xShmLock(Of(f)->real(), offset, n, flags)
                         : SQLITE_IOERR_SHMLOCK;
            },
        .xShmBarrier = [](sqlite3_file* f) { Of(f)->methods()->xShmBarrier(Of(f)->real()); },
        .xShmUnmap = [](sqlite3_file* f,
                        int remove) { return Of(f)->methods()->xShmUnmap(Of(f)->real(), remove); },
        .xFetch = nullptr,
        .xUnfetch = nullptr};
    return methods;
  }

  sqlite3_vfs vfs_;
};

}  // namespace tolven::test
