// The log of the process: to a standard stream or to a file that rotates, filtered by a level for
// each category that an administrator sets in a small text file.
//
// A message is a wide printf format with a hand-written tag, the source file's name and the line:
//   Logger::LogMsg(Logger::L_ERR, "client_debug", L"[ERROR] app(%d): no '%s'\n", __LINE__, path);
// Arguments are formatted by their own type (see lib/log-arg.h), with the flags, width and
// precision of their directive: a wrong directive gives a wrong text and never a crash. Control
// characters in arguments are printed escaped; those of the format stand. No line end is added.
// Output is UTF-8.
//
// All operations may be called from any thread. None throws, none reports a failed write.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "lib/log-arg.h"
#include "ustring/ustring.h"

namespace tolven {

// The name of a category, from whatever text the caller has at hand.
struct LogCategory {
  constexpr LogCategory(const char* text) : name(text == nullptr ? "" : text) {}
  constexpr LogCategory(std::string_view text) : name(text) {}
  LogCategory(const std::string& text) : name(text) {}
  LogCategory(const ustring& text) : name(text.view()) {}

  std::string_view name;
};

class Logger {
 public:
  enum Type {
    ANDROID_LOGGER = 0,  // this and the next go to standard error, without the time
    SYSLOG_LOGGER = 1,
    STDOUT_LOGGER = 2,
    STDERR_LOGGER = 3,
    FILE_LOGGER = 4
  };
  enum Level {
    L_EMERG = 0,
    L_ALERT = 1,
    L_CRIT = 2,
    L_ERR = 3,
    L_WARNING = 4,  // the threshold of every category that the level file does not name
    L_NOTICE = 5,
    L_INFO = 6,
    L_DEBUG = 7
  };

  // Messages are dropped until this was called. `level_file` is read by the rules of Config, with
  // categories as keys and level numbers as values; one that is missing or malformed changes
  // nothing, and levels read earlier stay. `path` and `rotate_count` matter to FILE_LOGGER alone:
  // the file is appended to, and rotated into `path`_0 (the newest) to `path`_(rotate_count - 2).
  // 0, or -1 when the file cannot be opened.
  static int Initialize(Type type, const ustring& path, const ustring& level_file,
                        int rotate_count);
  // Closes the file of a FILE_LOGGER; what follows goes to standard error.
  static void Destroy();
  // Puts the file aside and begins a new one: 0 or -1. After -1 the log is silent.
  static int Rotate();

  // A message whose level is off costs one look-up.
  template <class... Args>
  static void LogMsg(Level level, LogCategory category, const xchar* format, const Args&... args) {
    if (!IsEnabled(level, category)) return;
    const LogArg list[sizeof...(Args) + 1] = {LogArg(args)..., LogArg()};
    Write(format, std::span<const LogArg>(list, sizeof...(Args)));
  }
  // The same for a caller that has a list.
  static void LogMsg2(Level level, LogCategory category, const xchar* format,
                      std::span<const LogArg> args);

  // Whether a message would be written; for a caller whose arguments are costly to make.
  static bool IsEnabled(Level level, LogCategory category);

 private:
  static void Write(const xchar* format, std::span<const LogArg> args);
};

// For code that has no ustring: `args` is the one argument of the format; null means none.
void LogMSG_c(int level, const char* category, const wchar_t* format, const char* args);

}  // namespace tolven
