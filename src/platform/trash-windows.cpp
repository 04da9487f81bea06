#include "platform/long-path.h"
#include "platform/service-slot.h"
#include "platform/trash.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

// The shell's own code for a call that the object cannot be given to.
constexpr int kNotForTheShell = 1026;
constexpr std::size_t kLargestList = 2048;  // bytes, with both terminators

// The shell wants COM on the thread. A thread that has it in the other mode is served as well.
class ComOnThread {
 public:
  ComOnThread()
      : result_(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE)) {}
  ~ComOnThread() {
    if (SUCCEEDED(result_)) ::CoUninitialize();
  }
  ComOnThread(const ComOnThread&) = delete;
  ComOnThread& operator=(const ComOnThread&) = delete;

 private:
  const HRESULT result_;
};

class WindowsTrash : public Trash {
 public:
  Status MoveToTrash(const ustring& path) override {
    const PathArgument argument(path);
    if (!argument.status().ok()) return argument.status();
    if (::GetFileAttributesW(argument.c_str()) == INVALID_FILE_ATTRIBUTES) return LastError();
    // The shell knows no long form, and a list of names instead of one, which an empty one ends.
    std::wstring names = ToWide(PlainPath(get_extened_path(path)));
    names.append(2, L'\0');
    if (names.size() * sizeof(wchar_t) > kLargestList) return kNoTrash;
    const ComOnThread com;
    SHFILEOPSTRUCTW operation{};
    operation.wFunc = FO_DELETE;
    operation.pFrom = names.c_str();
    operation.fFlags = FOF_ALLOWUNDO | FOF_NOCONFIRMATION | FOF_SILENT | FOF_NOERRORUI;
    const int result = ::SHFileOperationW(&operation);
    if (result == kNotForTheShell) return kNoTrash;
    // Some of the shell's codes are those of the system, and some only look so.
    if (result != 0) return {ErrorKind::kOther, result};
    return operation.fAnyOperationsAborted != FALSE ? Status{ErrorKind::kOther, ERROR_CANCELLED}
                                                    : Status{};
  }

 private:
  static constexpr Status kNoTrash{ErrorKind::kNotSupported, kNotForTheShell};
};

using Slot = ServiceSlot<Trash, WindowsTrash>;

}  // namespace

Trash& trash() { return Slot::Get(); }
Trash* SetTrash(Trash* trash) { return Slot::Set(trash); }

}  // namespace tolven::platform
