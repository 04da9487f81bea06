#include "platform/spawn-windows.h"

#include <algorithm>
#include <limits>

#include "platform/command-line.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

constexpr UINT kKilledStatus = 137;  // what a killed child shows on the other system

HANDLE HandleOf(const ChildProcess& child) { return reinterpret_cast<HANDLE>(child.handle); }

bool HasEnded(const ChildProcess& child) { return child.handle < -1; }

std::intptr_t KeepStatus(DWORD status) { return -2 - static_cast<std::intptr_t>(status); }
int KeptStatus(const ChildProcess& child) { return static_cast<int>(-2 - child.handle); }

ScopedHandle OpenInherited(const wchar_t* path, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  return ScopedHandle(::CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                    disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

// The two handles that a child gets of us, and no others.
class InheritedHandles {
 public:
  Status Open(const ustring& output_path) {
    input_ = OpenInherited(L"NUL", GENERIC_READ, OPEN_EXISTING);
    if (!input_.valid()) return LastError();
    if (output_path.empty()) {
      output_ = OpenInherited(L"NUL", GENERIC_WRITE, OPEN_EXISTING);
    } else {
      const PathArgument path(output_path);
      if (!path.status().ok()) return path.status();
      output_ = OpenInherited(path.c_str(), FILE_APPEND_DATA | SYNCHRONIZE, OPEN_ALWAYS);
    }
    return output_.valid() ? MakeList() : LastError();
  }
  ~InheritedHandles() {
    if (list() != nullptr && made_) ::DeleteProcThreadAttributeList(list());
  }
  InheritedHandles() = default;
  InheritedHandles(const InheritedHandles&) = delete;
  InheritedHandles& operator=(const InheritedHandles&) = delete;

  void Fill(STARTUPINFOEXW& info) {
    info.StartupInfo.cb = sizeof info;
    info.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    info.StartupInfo.hStdInput = handles_[0];
    info.StartupInfo.hStdOutput = handles_[1];
    info.StartupInfo.hStdError = handles_[1];
    info.lpAttributeList = list();
  }

 private:
  LPPROC_THREAD_ATTRIBUTE_LIST list() {
    return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(buffer_.data());
  }

  Status MakeList() {
    handles_[0] = input_.get();
    handles_[1] = output_.get();
    SIZE_T size = 0;
    ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    buffer_.resize(size / sizeof(std::max_align_t) + 1);
    if (::InitializeProcThreadAttributeList(list(), 1, 0, &size) == FALSE) return LastError();
    made_ = true;
    return StatusOf(::UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST,
                                                handles_, sizeof handles_, nullptr, nullptr));
  }

  ScopedHandle input_, output_;
  HANDLE handles_[2] = {};
  std::vector<std::max_align_t> buffer_;
  bool made_ = false;
};

// A program's own path with the system's separators; the other words are the program's matter.
std::vector<ustring> WithProgramPath(std::vector<ustring> words) {
  std::string program = words[0].str();
  std::replace(program.begin(), program.end(), '/', '\\');
  words[0] = program;
  return words;
}

}  // namespace

Status SpawnChild(const std::vector<ustring>& words, const ustring& output_path,
                  ChildProcess& child) {
  child = ChildProcess{};
  if (words.empty()) return StatusFromError(ERROR_INVALID_PARAMETER);
  InheritedHandles handles;
  const Status status = handles.Open(output_path);
  if (!status.ok()) return status;
  STARTUPINFOEXW info{};
  handles.Fill(info);
  std::wstring line = ToWide(JoinCommandLine(WithProgramPath(words)));
  // A console of its own, which nobody sees: closing ours, or Ctrl-C in it, does not end the child.
  constexpr DWORD kFlags =
      CREATE_NO_WINDOW | CREATE_NEW_PROCESS_GROUP | EXTENDED_STARTUPINFO_PRESENT;
  PROCESS_INFORMATION process{};
  if (::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, kFlags, nullptr, nullptr,
                       &info.StartupInfo, &process) == FALSE) {
    return LastError();
  }
  ::CloseHandle(process.hThread);
  child.pid = process.dwProcessId;
  child.handle = reinterpret_cast<std::intptr_t>(process.hProcess);
  return {};
}

bool WaitForChild(ChildProcess& child, int timeout_ms, int& exit_status) {
  if (child.pid <= 0) return false;
  if (!HasEnded(child)) {
    const DWORD timeout = timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms);
    if (::WaitForSingleObject(HandleOf(child), timeout) != WAIT_OBJECT_0) return false;
    DWORD status = 255;  // how it ended is not known
    ::GetExitCodeProcess(HandleOf(child), &status);
    ::CloseHandle(HandleOf(child));
    child.handle = KeepStatus(status);
  }
  exit_status = KeptStatus(child);
  return true;
}

Status KillChild(ChildProcess& child) {
  if (child.pid <= 0 || HasEnded(child)) return {ErrorKind::kNotFound, ERROR_INVALID_HANDLE};
  return StatusOf(::TerminateProcess(HandleOf(child), kKilledStatus));
}

bool IsProcessRunning(std::int64_t pid) {
  if (pid <= 0 || pid > std::numeric_limits<DWORD>::max()) return false;
  const ScopedHandle process(::OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(pid)));
  if (!process.valid()) return ::GetLastError() == ERROR_ACCESS_DENIED;
  return ::WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

}  // namespace tolven::platform
