#include <signal.h>

#include <cstdlib>
#include <filesystem>

#include "support/system.h"

namespace tolven::test {

namespace fs = std::filesystem;

const char* const kDevice = "/dev/null";

const std::size_t kNameLength = 1;

void SetVariable(const char* name, const std::string& value) { ::setenv(name, value.c_str(), 1); }

void UseDataHome(const std::string& folder) { SetVariable("XDG_DATA_HOME", folder); }

void AskToEnd(std::int64_t pid) { ::kill(static_cast<pid_t>(pid), SIGINT); }

void KillProgram(std::int64_t pid) { ::kill(static_cast<pid_t>(pid), SIGKILL); }

bool MakeLink(const std::string& target, const std::string& link) {
  std::error_code error;
  fs::create_symlink(target, link, error);
  return !error;
}

bool HasModes() { return true; }

std::size_t OpenHandles() {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

}  // namespace tolven::test
