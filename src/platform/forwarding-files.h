// See forwarding.h. Folder readers and append writers are wrapped as well: their calls are "Next",
// "Begin" and "Wait".
#pragma once

#include "platform/files.h"
#include "platform/forwarding.h"

namespace tolven::platform {

class ForwardingDirReader : public DirReader, protected Forwarding {
 public:
  ForwardingDirReader(std::unique_ptr<DirReader> base, CallHook hook)
      : Forwarding(std::move(hook)), base_(std::move(base)) {}

  Status Next(DirItem& item, bool& done) override {
    done = false;
    return Do("Next", [&] { return base_->Next(item, done); });
  }

 private:
  const std::unique_ptr<DirReader> base_;
};

class ForwardingAppendWriter : public AppendWriter, protected Forwarding {
 public:
  ForwardingAppendWriter(std::unique_ptr<AppendWriter> base, CallHook hook)
      : Forwarding(std::move(hook)), base_(std::move(base)) {}

  Status Begin(NativeFile file, const void* data, std::size_t size) override {
    return Do("Begin", [&] { return base_->Begin(file, data, size); });
  }
  Status Wait(std::size_t& written) override {
    // The write in flight ends in any case.
    const Status status = base_->Wait(written);
    const Status wanted = Ask("Wait");
    if (wanted.ok()) return status;
    written = 0;
    return wanted;
  }

 private:
  const std::unique_ptr<AppendWriter> base_;
};

class ForwardingFiles : public Files, protected Forwarding {
 public:
  explicit ForwardingFiles(Files& base, CallHook hook = {})
      : Forwarding(std::move(hook)), base_(base) {}

  Status Open(const ustring& path, OpenMode mode, NativeFile& file) override {
    file = kInvalidFile;
    return Do("Open", [&] { return base_.Open(path, mode, file); });
  }
  Status Close(NativeFile file) override {
    // A close that fails has closed nevertheless.
    const Status status = base_.Close(file);
    const Status wanted = Ask("Close");
    return wanted.ok() ? status : wanted;
  }
  Status Read(NativeFile file, void* data, std::size_t size, std::size_t& got) override {
    got = 0;
    return Do("Read", [&] { return base_.Read(file, data, size, got); });
  }
  Status Write(NativeFile file, const void* data, std::size_t size, std::size_t& written) override {
    written = 0;
    return Do("Write", [&] { return base_.Write(file, data, size, written); });
  }
  Status Seek(NativeFile file, std::uint64_t offset) override {
    return Do("Seek", [&] { return base_.Seek(file, offset); });
  }
  Status Truncate(NativeFile file, std::uint64_t size) override {
    return Do("Truncate", [&] { return base_.Truncate(file, size); });
  }
  Status Sync(NativeFile file) override {
    return Do("Sync", [&] { return base_.Sync(file); });
  }
  void StartWriteback(NativeFile file, std::uint64_t offset, std::uint64_t size) override {
    base_.StartWriteback(file, offset, size);
  }
  Status StatFile(NativeFile file, NodeInfo& info) override {
    return Do("StatFile", [&] { return base_.StatFile(file, info); });
  }
  std::unique_ptr<AppendWriter> NewAppendWriter() override {
    return std::make_unique<ForwardingAppendWriter>(base_.NewAppendWriter(), hook());
  }

  Status Stat(const ustring& path, NodeInfo& info) override {
    return Do("Stat", [&] { return base_.Stat(path, info); });
  }
  Status StatTarget(const ustring& path, NodeInfo& info) override {
    return Do("StatTarget", [&] { return base_.StatTarget(path, info); });
  }
  Status NameOnDisk(const ustring& path, ustring& name) override {
    return Do("NameOnDisk", [&] { return base_.NameOnDisk(path, name); });
  }
  Status RealPath(const ustring& path, ustring& real) override {
    return Do("RealPath", [&] { return base_.RealPath(path, real); });
  }
  Status TryAccess(const ustring& path, Access access) override {
    return Do("TryAccess", [&] { return base_.TryAccess(path, access); });
  }
  Status SetModifiedTime(const ustring& path, std::int64_t mtime_ns) override {
    return Do("SetModifiedTime", [&] { return base_.SetModifiedTime(path, mtime_ns); });
  }
  Status SetMode(const ustring& path, std::uint32_t mode) override {
    return Do("SetMode", [&] { return base_.SetMode(path, mode); });
  }
  std::uint32_t NewFileMode() override { return base_.NewFileMode(); }
  Status SetReadOnly(const ustring& path, bool read_only) override {
    return Do("SetReadOnly", [&] { return base_.SetReadOnly(path, read_only); });
  }
  Status SetHidden(const ustring& path) override {
    return Do("SetHidden", [&] { return base_.SetHidden(path); });
  }

  Status Rename(const ustring& from, const ustring& to) override {
    return Do("Rename", [&] { return base_.Rename(from, to); });
  }
  Status RenameUnsynced(const ustring& from, const ustring& to) override {
    return Do("RenameUnsynced", [&] { return base_.RenameUnsynced(from, to); });
  }
  Status RenameNoReplace(const ustring& from, const ustring& to) override {
    return Do("RenameNoReplace", [&] { return base_.RenameNoReplace(from, to); });
  }
  Status RemoveFile(const ustring& path) override {
    return Do("RemoveFile", [&] { return base_.RemoveFile(path); });
  }
  Status RemoveDirectory(const ustring& path) override {
    return Do("RemoveDirectory", [&] { return base_.RemoveDirectory(path); });
  }
  Status MakeDirectory(const ustring& path) override {
    return Do("MakeDirectory", [&] { return base_.MakeDirectory(path); });
  }
  Status MakeDirectoryMode(const ustring& path, std::uint32_t mode) override {
    return Do("MakeDirectoryMode", [&] { return base_.MakeDirectoryMode(path, mode); });
  }
  Status SyncDirectory(const ustring& path) override {
    return Do("SyncDirectory", [&] { return base_.SyncDirectory(path); });
  }
  Status OpenDirectory(const ustring& path, bool want_info,
                       std::unique_ptr<DirReader>& reader) override {
    reader.reset();
    return Wrap(Do("OpenDirectory", [&] { return base_.OpenDirectory(path, want_info, reader); }),
                reader);
  }
  Status OpenRealDirectory(const ustring& path, bool want_info,
                           std::unique_ptr<DirReader>& reader) override {
    reader.reset();
    return Wrap(
        Do("OpenRealDirectory", [&] { return base_.OpenRealDirectory(path, want_info, reader); }),
        reader);
  }

 private:
  Status Wrap(Status status, std::unique_ptr<DirReader>& reader) {
    if (reader != nullptr) {
      reader = std::make_unique<ForwardingDirReader>(std::move(reader), hook());
    }
    return status;
  }

  Files& base_;
};

}  // namespace tolven::platform
