#include "platform/node-windows.h"

#include "platform/attributes.h"
#include "platform/long-path.h"

namespace tolven::platform {

namespace {

std::uint64_t Join(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

// Fills what a listing and an open object both tell.
template <class Data>
NodeInfo InfoOf(const Data& data) {
  NodeInfo info = InfoFromAttributes(data.dwFileAttributes);
  if (info.kind == NodeKind::kFile) info.size = Join(data.nFileSizeHigh, data.nFileSizeLow);
  info.mtime_ns =
      FromFileTime(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime);
  return info;
}

class WindowsDirReader : public DirReader {
 public:
  WindowsDirReader(std::wstring folder, bool want_info)
      : folder_(std::move(folder)), want_info_(want_info) {}
  ~WindowsDirReader() override {
    if (find_ != INVALID_HANDLE_VALUE) ::FindClose(find_);
  }

  Status Open() {
    const std::wstring pattern = folder_ + (folder_.back() == L'\\' ? L"*" : L"\\*");
    find_ = ::FindFirstFileW(pattern.c_str(), &data_);
    if (find_ != INVALID_HANDLE_VALUE) return {};
    const DWORD code = ::GetLastError();
    // The root of an empty drive has not even "." and "..".
    return code == ERROR_FILE_NOT_FOUND ? Status{} : StatusFromError(code);
  }

  Status Next(DirItem& item, bool& done) override {
    done = false;
    if (find_ == INVALID_HANDLE_VALUE) return AtEnd(done);
    if (!first_ && ::FindNextFileW(find_, &data_) == FALSE) {
      const DWORD code = ::GetLastError();
      return code == ERROR_NO_MORE_FILES ? AtEnd(done) : StatusFromError(code);
    }
    first_ = false;
    item.name = FromWide(data_.cFileName);
    item.info = InfoOf(data_);
    if (!want_info_) {
      const NodeKind kind = item.info.kind;
      item.info = NodeInfo{};
      item.info.kind = kind;
    }
    return {};
  }

 private:
  // The end of a listing whose folder has gone meanwhile says nothing.
  Status AtEnd(bool& done) {
    done = ::GetFileAttributesW(folder_.c_str()) != INVALID_FILE_ATTRIBUTES;
    return done ? Status{} : LastError();
  }

  const std::wstring folder_;
  const bool want_info_;
  HANDLE find_ = INVALID_HANDLE_VALUE;
  WIN32_FIND_DATAW data_{};
  bool first_ = true;
};

}  // namespace

Status InfoOfHandle(HANDLE handle, NodeInfo& info) {
  BY_HANDLE_FILE_INFORMATION data{};
  if (::GetFileInformationByHandle(handle, &data) == FALSE) return LastError();
  info = InfoOf(data);
  info.volume_id = data.dwVolumeSerialNumber;
  info.file_id = Join(data.nFileIndexHigh, data.nFileIndexLow);
  return {};
}

Status OpenNode(const PathArgument& path, DWORD access, DWORD flags, ScopedHandle& node) {
  if (!path.status().ok()) return path.status();
  node.Reset(
      ::CreateFileW(path.c_str(), access, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr));
  return node.valid() ? Status{} : LastError();
}

Status AttributesOf(const PathArgument& path, DWORD& attributes) {
  if (!path.status().ok()) return path.status();
  attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES ? Status{} : LastError();
}

Status FindName(const PathArgument& path, ustring& name) {
  if (!path.status().ok()) return path.status();
  const ustring text = FromWide(path.text());
  if (WindowsRootLength(text.view()) == text.size()) {
    DWORD attributes = 0;
    const Status status = AttributesOf(path, attributes);
    if (status.ok()) name = text;
    return status;
  }
  WIN32_FIND_DATAW data{};
  const HANDLE find = ::FindFirstFileW(path.c_str(), &data);
  if (find == INVALID_HANDLE_VALUE) return LastError();
  ::FindClose(find);
  name = FromWide(data.cFileName);
  return {};
}

Status ListFolder(const PathArgument& path, Links links, bool want_info,
                  std::unique_ptr<DirReader>& reader) {
  reader.reset();
  DWORD attributes = 0;
  Status status = AttributesOf(path, attributes);
  if (!status.ok()) return status;
  const bool link = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 || (link && links == Links::kRefuse)) {
    return StatusFromError(ERROR_DIRECTORY);
  }
  auto opened = std::make_unique<WindowsDirReader>(path.text(), want_info);
  status = opened->Open();
  if (status.ok()) reader = std::move(opened);
  return status;
}

}  // namespace tolven::platform
