#include <limits.h>
#include <locale.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <string_view>

#include "platform/errno-linux.h"
#include "platform/process.h"
#include "platform/service-slot.h"
#include "platform/spawn-linux.h"
#include "platform/termination-linux.h"

namespace tolven::platform {

namespace {

constexpr std::size_t kLongestArgument = 8191;

// Characters as the other system counts them: one beyond the basic plane counts twice.
std::size_t CountUnits(std::string_view text) {
  std::size_t units = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0) != 0x80) units += byte >= 0xF0 ? 2 : 1;
  }
  return units;
}

class LinuxProcess : public Process {
 public:
  void RequestLateShutdown() override {}

  Status StartSockets() override {
    return ::signal(SIGPIPE, SIG_IGN) == SIG_ERR ? LastError() : Status{};
  }
  void StopSockets() override {}

  void SetUserLocale() override { (void)::setlocale(LC_ALL, ""); }

  std::uint32_t Id() override { return static_cast<std::uint32_t>(::getpid()); }

  std::vector<std::string> Arguments(int argc, const char* const* argv) override {
    return argc > 0 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
  }

  Status DecodeArgument(const char* word, ustring& text) override {
    text.clear();
    if (word == nullptr || *word == '\0' || CountUnits(word) > kLongestArgument) {
      return StatusFromErrno(EINVAL);
    }
    if (!ustring::is_valid(word)) return StatusFromErrno(EILSEQ);
    text = word;
    return {};
  }

  ustring Environment(const char* name) override { return ::getenv(name); }

  Status ExecutablePath(ustring& path) override {
    char buffer[PATH_MAX];
    const ssize_t size = ::readlink("/proc/self/exe", buffer, sizeof buffer);
    if (size < 0) return LastError();
    path.assign(buffer, static_cast<std::size_t>(size));
    return {};
  }

  Status CurrentDirectory(ustring& path) override {
    char buffer[PATH_MAX];
    if (::getcwd(buffer, sizeof buffer) == nullptr) return LastError();
    path = buffer;
    return {};
  }

  bool IsTerminal(int stream) override { return ::isatty(stream) == 1; }

  bool TerminalSize(int& columns, int& rows) override {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return false;
    columns = size.ws_col;
    rows = size.ws_row;
    return true;
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

using Slot = ServiceSlot<Process, LinuxProcess>;

}  // namespace

Process& process() { return Slot::Get(); }
Process* SetProcess(Process* process) { return Slot::Set(process); }

}  // namespace tolven::platform
