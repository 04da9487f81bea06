// The process itself: start-up, environment, children, signals.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/status.h"
#include "ustring/ustring.h"

namespace tolven::platform {

// A child process.
struct ChildProcess {
  std::int64_t pid = -1;
  std::intptr_t handle = -1;
};

class Process {
 public:
  virtual ~Process() = default;

  // Asks to be among the last to be told of a system shut-down. No effect on Linux.
  virtual void RequestLateShutdown() = 0;
  // Prepares the socket library (Windows) and ignores broken-pipe signals (Linux).
  virtual Status StartSockets() = 0;
  virtual void StopSockets() = 0;
  // Takes the user's locale for the whole process.
  virtual void SetUserLocale() = 0;
  virtual std::uint32_t Id() = 0;
  // The words of the command line behind the program's name, in UTF-8. Takes those of main().
  virtual std::vector<std::string> Arguments(int argc, const char* const* argv) = 0;
  // A command-line word from the system code page. Fails for an empty or unconvertible word, or
  // one of more than 8,191 characters.
  virtual Status DecodeArgument(const char* word, ustring& text) = 0;

  // Empty when unset.
  virtual ustring Environment(const char* name) = 0;
  virtual Status ExecutablePath(ustring& path) = 0;
  virtual Status CurrentDirectory(ustring& path) = 0;
  // 0 input, 1 output, 2 error; an output that is one takes the usual escape sequences.
  virtual bool IsTerminal(int stream) = 0;
  // Columns and rows of the terminal on standard output; false when it is none.
  virtual bool TerminalSize(int& columns, int& rows) = 0;

  // Starts a program with its own process group, standard input closed, output and error going to
  // `output_path` (appended; nowhere when empty).
  virtual Status Spawn(const std::vector<ustring>& words, const ustring& output_path,
                       ChildProcess& child) = 0;
  // Whether the child has ended, and with which exit status; waits at most `timeout_ms`.
  virtual bool WaitForExit(ChildProcess& child, int timeout_ms, int& exit_status) = 0;
  virtual Status Kill(ChildProcess& child) = 0;
  // Whether a process with this id runs.
  virtual bool IsRunning(std::int64_t pid) = 0;

  // `handler` runs once, on a thread of its own, when the user or the system asks the program to
  // end (Ctrl-C, SIGTERM, a closed console).
  virtual Status OnTermination(std::function<void()> handler) = 0;
};

Process& process();
Process* SetProcess(Process* process);

}  // namespace tolven::platform
