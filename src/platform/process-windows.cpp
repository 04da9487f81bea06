#include <locale.h>

#include "platform/paths.h"
#include "platform/process.h"
#include "platform/service-slot.h"
#include "platform/spawn-windows.h"
#include "platform/termination-windows.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

constexpr DWORD kShutdownLevel = 0x100;
constexpr WORD kWinsockVersion = MAKEWORD(2, 2);
constexpr std::size_t kLongestArgument = 8191;
constexpr DWORD kLongestPath = 32768;

DWORD StreamOf(int stream) {
  return stream == 0 ? STD_INPUT_HANDLE : stream == 1 ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE;
}

// The text that a call writes into a buffer; `size` is what it returned.
Status TakePath(const std::wstring& buffer, DWORD size, ustring& path) {
  if (size == 0) return LastError();
  if (size >= buffer.size()) return StatusFromError(ERROR_INSUFFICIENT_BUFFER);
  path = PathFromWide({buffer.data(), size});
  return {};
}

class WindowsProcess : public Process {
 public:
  void RequestLateShutdown() override { ::SetProcessShutdownParameters(kShutdownLevel, 0); }

  Status StartSockets() override {
    WSADATA data;
    const int code = ::WSAStartup(kWinsockVersion, &data);
    if (code != 0) ::WSACleanup();
    return StatusFromError(static_cast<DWORD>(code));
  }
  void StopSockets() override { ::WSACleanup(); }

  // What we print is UTF-8, whatever the locale.
  void SetUserLocale() override {
    (void)::setlocale(LC_ALL, "");
    ::SetConsoleOutputCP(CP_UTF8);
  }

  std::uint32_t Id() override { return ::GetCurrentProcessId(); }

  // The words that main() gets lack what the code page does not have.
  std::vector<std::string> Arguments(int, const char* const*) override {
    std::vector<std::string> words;
    int count = 0;
    wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    if (wide == nullptr) return words;
    for (int i = 1; i < count; ++i) words.push_back(FromWide(wide[i]).str());
    ::LocalFree(wide);
    return words;
  }

  Status DecodeArgument(const char* word, ustring& text) override {
    text.clear();
    std::u16string wide;
    if (word == nullptr || *word == '\0') return StatusFromError(ERROR_INVALID_PARAMETER);
    const Status status = FromCodePage(word, wide);
    if (!status.ok()) return status;
    if (wide.size() > kLongestArgument) return StatusFromError(ERROR_INVALID_PARAMETER);
    text = wide.c_str();
    return {};
  }

  ustring Environment(const char* name) override {
    const std::wstring wide_name = ToWide(name);
    std::wstring value;
    // Its size may change between two calls.
    for (DWORD size = ::GetEnvironmentVariableW(wide_name.c_str(), nullptr, 0); size > 0;) {
      value.resize(size);
      const DWORD length = ::GetEnvironmentVariableW(wide_name.c_str(), value.data(), size);
      if (length < size) return FromWide({value.data(), length});
      size = length;
    }
    return {};
  }

  Status ExecutablePath(ustring& path) override {
    std::wstring buffer(kLongestPath, L'\0');
    return TakePath(buffer, ::GetModuleFileNameW(nullptr, buffer.data(), kLongestPath), path);
  }

  Status CurrentDirectory(ustring& path) override {
    std::wstring buffer(kLongestPath, L'\0');
    return TakePath(buffer, ::GetCurrentDirectoryW(kLongestPath, buffer.data()), path);
  }

  bool IsTerminal(int stream) override {
    const HANDLE handle = ::GetStdHandle(StreamOf(stream));
    DWORD mode = 0;
    if (::GetConsoleMode(handle, &mode) == FALSE) return false;
    return stream == 0 ||
           ::SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
  }

  bool TerminalSize(int& columns, int& rows) override {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
    if (::GetConsoleScreenBufferInfo(output, &info) == FALSE) return false;
    columns = info.srWindow.Right - info.srWindow.Left + 1;
    rows = info.srWindow.Bottom - info.srWindow.Top + 1;
    return columns > 0;
  }

  Status Spawn(const std::vector<ustring>& words, const ustring& output_path,
               ChildProcess& child) override {
    return SpawnChild(words, output_path, child);
  }
  bool WaitForExit(ChildProcess& child, int timeout_ms, int& exit_status) override {
    return WaitForChild(child, timeout_ms, exit_status);
  }
  Status Kill(ChildProcess& child) override { return KillChild(child); }
  bool IsRunning(std::int64_t pid) override { return IsProcessRunning(pid); }

  Status OnTermination(std::function<void()> handler) override {
    return RunOnTermination(std::move(handler));
  }
};

using Slot = ServiceSlot<Process, WindowsProcess>;

}  // namespace

Process& process() { return Slot::Get(); }
Process* SetProcess(Process* process) { return Slot::Set(process); }

}  // namespace tolven::platform
