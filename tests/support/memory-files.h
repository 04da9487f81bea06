// Files in memory, by name, for fuzzers: opening, reading, seeking and appending. There are no
// folders; every other call goes to the real service.
#pragma once

#include <algorithm>
#include <map>
#include <string>

#include "platform/forwarding-files.h"

namespace tolven::test {

class MemoryFiles : public platform::ForwardingFiles {
 public:
  MemoryFiles() : ForwardingFiles(platform::files()), before_(platform::SetFiles(this)) {}
  ~MemoryFiles() override { platform::SetFiles(before_); }

  std::string& operator[](const std::string& name) { return files_[name]; }

  platform::Status Open(const ustring& path, platform::OpenMode mode,
                        platform::NativeFile& file) override {
    if (mode == platform::OpenMode::kRead && files_.count(path.str()) == 0) {
      return {platform::ErrorKind::kNotFound, 2};
    }
    if (mode == platform::OpenMode::kTruncate) files_[path.str()].clear();
    file = ++last_;
    open_[file] = {path.str(), 0};
    return {};
  }
  platform::Status Close(platform::NativeFile file) override {
    open_.erase(file);
    return {};
  }
  platform::Status Read(platform::NativeFile file, void* data, std::size_t size,
                        std::size_t& got) override {
    auto& [name, place] = open_[file];
    const std::string& content = files_[name];
    const std::size_t from = std::min<std::size_t>(place, content.size());
    got = content.copy(static_cast<char*>(data), size, from);
    place += got;
    return {};
  }
  platform::Status Seek(platform::NativeFile file, std::uint64_t offset) override {
    open_[file].second = offset;
    return {};
  }
  platform::Status StatFile(platform::NativeFile file, platform::NodeInfo& info) override {
    info.size = files_[open_[file].first].size();
    return {};
  }
  std::unique_ptr<platform::AppendWriter> NewAppendWriter() override {
    return std::make_unique<Writer>(*this);
  }

 private:
  class Writer : public platform::AppendWriter {
   public:
    explicit Writer(MemoryFiles& files) : files_(files) {}
    platform::Status Begin(platform::NativeFile file, const void* data, std::size_t size) override {
      files_.files_[files_.open_[file].first].append(static_cast<const char*>(data), size);
      size_ = size;
      return {};
    }
    platform::Status Wait(std::size_t& written) override {
      written = size_;
      return {};
    }

   private:
    MemoryFiles& files_;
    std::size_t size_ = 0;
  };

  platform::Files* const before_;
  std::map<std::string, std::string> files_;
  std::map<platform::NativeFile, std::pair<std::string, std::uint64_t>> open_;
  platform::NativeFile last_ = 0;
};

}  // namespace tolven::test
