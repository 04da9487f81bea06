// Between the system's UTF-16 and ours, handles, and paths as the system takes them.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/error-windows.h"
#include "ustring/ustring.h"

namespace tolven::platform {

// Empty for text that is not well-formed, which every call then refuses.
std::wstring ToWide(const ustring& text);
// Halves of surrogate pairs that stand alone become U+FFFD.
ustring FromWide(std::wstring_view text);
// The same for a path, with "/" as separator.
ustring PathFromWide(std::wstring_view text);

// A path in long form. One with a component that this system does not take as the name of a file
// names nothing: the system would find a stream, a device or another file by it.
class PathArgument {
 public:
  explicit PathArgument(const ustring& path);
  const wchar_t* c_str() const { return text_.c_str(); }
  const std::wstring& text() const { return text_; }
  const Status& status() const { return status_; }

 private:
  std::wstring text_;
  Status status_;
};

// Closes a handle at the end of a scope. Both values that the system uses for "none" are none.
class ScopedHandle {
 public:
  ScopedHandle() = default;
  explicit ScopedHandle(HANDLE handle) : handle_(handle) {}
  ~ScopedHandle() { Reset(); }
  ScopedHandle(ScopedHandle&& other) noexcept : handle_(other.Release()) {}
  ScopedHandle& operator=(ScopedHandle&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  ScopedHandle(const ScopedHandle&) = delete;
  ScopedHandle& operator=(const ScopedHandle&) = delete;

  HANDLE get() const { return handle_; }
  bool valid() const { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }
  HANDLE* receive() {
    Reset();
    return &handle_;
  }
  HANDLE Release() { return std::exchange(handle_, nullptr); }
  void Reset(HANDLE handle = nullptr) {
    if (valid()) ::CloseHandle(handle_);
    handle_ = handle;
  }

 private:
  HANDLE handle_ = nullptr;
};

}  // namespace tolven::platform
