#include "platform/spawn-linux.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "platform/errno-linux.h"
#include "platform/system-file-linux.h"

namespace tolven::platform {

namespace {

constexpr int kPollMs = 5;

// What the child gets other than a copy of this process.
class SpawnPlan {
 public:
  SpawnPlan() {
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawnattr_init(&attributes);
  }
  ~SpawnPlan() {
    ::posix_spawn_file_actions_destroy(&files);
    ::posix_spawnattr_destroy(&attributes);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;

  int Prepare(const char* output) {
    constexpr int kMode = O_WRONLY | O_CREAT | O_APPEND;
    int code = ::posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    if (code == 0) code = ::posix_spawn_file_actions_addopen(&files, 1, output, kMode, 0666);
    if (code == 0) code = ::posix_spawn_file_actions_adddup2(&files, 1, 2);
    if (code == 0) code = ::posix_spawnattr_setpgroup(&attributes, 0);
    // An ignored or blocked signal would stay so in the new program.
    sigset_t defaults;
    ::sigemptyset(&defaults);
    if (code == 0) code = ::posix_spawnattr_setsigmask(&attributes, &defaults);
    ::sigaddset(&defaults, SIGPIPE);
    if (code == 0) code = ::posix_spawnattr_setsigdefault(&attributes, &defaults);
    const int flags = POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
    if (code == 0) code = ::posix_spawnattr_setflags(&attributes, static_cast<short>(flags));
    return code;
  }

  posix_spawn_file_actions_t files{};
  posix_spawnattr_t attributes{};
};

bool HasEnded(const ChildProcess& child) { return child.handle >= 0; }

// Takes the child's end, if it has come, from the system.
bool Reap(ChildProcess& child) {
  int status = 0;
  const pid_t pid =
      Retry([&] { return ::waitpid(static_cast<pid_t>(child.pid), &status, WNOHANG); });
  if (pid == 0) return false;
  // A child that someone else took over is gone, too; how it ended is not known.
  child.handle = 255;
  if (pid > 0 && WIFEXITED(status)) child.handle = WEXITSTATUS(status);
  if (pid > 0 && WIFSIGNALED(status)) child.handle = 128 + WTERMSIG(status);
  return true;
}

}  // namespace

Status SpawnChild(const std::vector<ustring>& words, const ustring& output_path,
                  ChildProcess& child) {
  child = ChildProcess{};
  if (words.empty()) return StatusFromErrno(EINVAL);
  std::vector<char*> arguments;
  for (const ustring& word : words) arguments.push_back(const_cast<char*>(word.c_str_utf8()));
  arguments.push_back(nullptr);
  SpawnPlan plan;
  const int prepared = plan.Prepare(output_path.empty() ? "/dev/null" : output_path.c_str_utf8());
  if (prepared != 0) return StatusFromErrno(prepared);
  pid_t pid = -1;
  const int code =
      ::posix_spawnp(&pid, arguments[0], &plan.files, &plan.attributes, arguments.data(), environ);
  if (code == 0) child.pid = pid;
  return StatusFromErrno(code);
}

bool WaitForChild(ChildProcess& child, int timeout_ms, int& exit_status) {
  using Time = std::chrono::steady_clock;
  if (child.pid <= 0) return false;
  const auto deadline = Time::now() + std::chrono::milliseconds(std::max(timeout_ms, 0));
  while (!HasEnded(child) && !Reap(child)) {
    if (timeout_ms >= 0 && Time::now() >= deadline) return false;
    (void)::poll(nullptr, 0, kPollMs);
  }
  exit_status = static_cast<int>(child.handle);
  return true;
}

Status KillChild(ChildProcess& child) {
  if (child.pid <= 0 || HasEnded(child)) return StatusFromErrno(ESRCH);
  return StatusOf(::kill(static_cast<pid_t>(child.pid), SIGKILL));
}

bool IsProcessRunning(std::int64_t pid) {
  if (pid <= 0 || pid > INT_MAX) return false;
  if (::kill(static_cast<pid_t>(pid), 0) != 0 && errno != EPERM) return false;
  // One that has ended and that its parent has not looked after still has its id. The name in
  // parentheses, which may hold anything, comes before the letter of its state.
  std::string line;
  const std::string path = "/proc/" + std::to_string(pid) + "/stat";
  const Status status = ReadSystemFile(path.c_str(), line);
  if (!status.ok()) return !status.is(ErrorKind::kNotFound);
  const std::size_t end = line.rfind(") ");
  if (end == std::string::npos || end + 2 >= line.size()) return true;
  return line[end + 2] != 'Z' && line[end + 2] != 'X';
}

}  // namespace tolven::platform
