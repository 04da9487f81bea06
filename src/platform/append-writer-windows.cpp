// Large blocks go out through an overlapped handle of the writer's own, opened for each of them, so
// that the file can be renamed or replaced between two writes as if it were open once. A small one
// is written at once: opening costs more.
#include <algorithm>

#include "platform/node-windows.h"

namespace tolven::platform {

namespace {

constexpr std::size_t kWorthAnotherHandle = 256 * 1024;
constexpr std::size_t kLargestWrite = std::size_t{1} << 30;

// An offset of all ones is the end of the file.
OVERLAPPED AtEnd(HANDLE event) {
  OVERLAPPED request{};
  request.Offset = 0xFFFFFFFF;
  request.OffsetHigh = 0xFFFFFFFF;
  request.hEvent = event;
  return request;
}

Status WriteAtEnd(HANDLE file, const char* data, std::size_t size, std::size_t& written) {
  written = 0;
  while (written < size) {
    OVERLAPPED request = AtEnd(nullptr);
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min(size - written, kLargestWrite));
    if (::WriteFile(file, data + written, wanted, &count, &request) == FALSE) return LastError();
    if (count == 0) return StatusFromError(ERROR_WRITE_FAULT);
    written += count;
  }
  return {};
}

class WindowsAppendWriter : public AppendWriter {
 public:
  WindowsAppendWriter() : event_(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
  // The system writes to the request and reads the data until the write has ended.
  ~WindowsAppendWriter() override {
    std::size_t written = 0;
    if (state_ == State::kInFlight) (void)Wait(written);
  }

  Status Begin(NativeFile file, const void* data, std::size_t size) override {
    if (state_ != State::kIdle) return StatusFromError(ERROR_INVALID_PARAMETER);
    const char* const bytes = static_cast<const char*>(data);
    if (size < kWorthAnotherHandle || size > kLargestWrite || !StartWrite(file, bytes, size)) {
      result_ = WriteAtEnd(HandleOf(file), bytes, size, written_);
      state_ = State::kDone;
    }
    return {};
  }

  Status Wait(std::size_t& written) override {
    written = 0;
    if (state_ == State::kIdle) return StatusFromError(ERROR_INVALID_PARAMETER);
    if (state_ == State::kInFlight) {
      DWORD count = 0;
      result_ = StatusOf(::GetOverlappedResult(file_.get(), &request_, &count, TRUE));
      written_ = count;
      if (result_.ok() && count < size_) result_ = StatusFromError(ERROR_WRITE_FAULT);
      file_.Reset();
    }
    state_ = State::kIdle;
    written = written_;
    return result_;
  }

 private:
  enum class State { kIdle, kInFlight, kDone };

  // False when nothing was written and nothing is under way.
  bool StartWrite(NativeFile file, const char* data, std::size_t size) {
    // Another handle may have rights that this one was not opened with.
    DWORD none = 0;
    const bool writable = ::WriteFile(HandleOf(file), data, 0, &none, nullptr) != FALSE;
    if (!writable || !event_.valid()) return false;
    file_.Reset(::ReOpenFile(HandleOf(file), FILE_APPEND_DATA | SYNCHRONIZE, kShareAll,
                             FILE_FLAG_OVERLAPPED));
    if (!file_.valid()) return false;
    ::ResetEvent(event_.get());
    request_ = AtEnd(event_.get());
    if (::WriteFile(file_.get(), data, static_cast<DWORD>(size), nullptr, &request_) == FALSE &&
        ::GetLastError() != ERROR_IO_PENDING) {
      file_.Reset();
      return false;
    }
    size_ = size;
    state_ = State::kInFlight;
    return true;
  }

  ScopedHandle event_;
  ScopedHandle file_;
  OVERLAPPED request_{};
  State state_ = State::kIdle;
  std::size_t size_ = 0;
  Status result_;
  std::size_t written_ = 0;
};

}  // namespace

std::unique_ptr<AppendWriter> NewWindowsAppendWriter() {
  return std::make_unique<WindowsAppendWriter>();
}

}  // namespace tolven::platform
