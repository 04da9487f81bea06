// The daemon's log: messages with a level and a category, to the standard output or to a rotating
// file. An administrator sets thresholds by category in a small text file; a category that is not
// in it writes warnings and what is more urgent.
//
//   Logger::LogMsg(Logger::L_ERR, "client_debug", L"[ERROR] app(%d): cannot open %s\n", __LINE__,
//   path);
//
// Formats are wide and in printf's notation, but each argument is formatted by its own type: the
// conversion only tells the notation (decimal or hexadecimal, width, precision), so a wrong or
// missing argument is at worst a wrong text. Control characters in text arguments are printed
// escaped. A format brings its own line end.
//
// All operations may be called from any thread. A message below its category's threshold costs one
// look-up. Failures to write are never reported to callers.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "ustring/ustring.h"

namespace tolven {

// One argument of a message. Texts are borrowed for the length of the call.
struct LogArg {
  enum class Kind { kSigned, kUnsigned, kDouble, kCharacter, kText, kWideText, kPointer };

  Kind kind = Kind::kSigned;
  union {
    std::int64_t signed_value;
    std::uint64_t unsigned_value;
    double double_value;
    const void* pointer;
  };
  std::string_view text;
  std::wstring_view wide_text;

  LogArg(bool value) : kind(Kind::kUnsigned), unsigned_value(value) {}
  LogArg(char value) : kind(Kind::kCharacter), unsigned_value(static_cast<unsigned char>(value)) {}
  template <std::signed_integral T>
  LogArg(T value) : kind(Kind::kSigned), signed_value(value) {}
  template <std::unsigned_integral T>
  LogArg(T value) : kind(Kind::kUnsigned), unsigned_value(value) {}
  LogArg(double value) : kind(Kind::kDouble), double_value(value) {}
  LogArg(const char* value)
      : kind(Kind::kText), pointer(nullptr), text(value == nullptr ? "(null)" : value) {}
  LogArg(std::string_view value) : kind(Kind::kText), pointer(nullptr), text(value) {}
  LogArg(const std::string& value) : kind(Kind::kText), pointer(nullptr), text(value) {}
  LogArg(const ustring& value) : kind(Kind::kText), pointer(nullptr), text(value.view()) {}
  LogArg(const wchar_t* value)
      : kind(Kind::kWideText), pointer(nullptr), wide_text(value == nullptr ? L"(null)" : value) {}
  LogArg(const void* value) : kind(Kind::kPointer), pointer(value) {}
};

// Appends `format` with its arguments in place, as UTF-8.
void FormatLogMessage(const xchar* format, std::span<const LogArg> args, std::string& text);

class Logger {
 public:
  enum Type {
    ANDROID_LOGGER = 0,
    SYSLOG_LOGGER = 1,  // these two have no destination of their own: standard error
    STDOUT_LOGGER = 2,
    STDERR_LOGGER = 3,
    FILE_LOGGER = 4,
  };
  enum Level {
    L_EMERG = 0,
    L_ALERT = 1,
    L_CRIT = 2,
    L_ERR = 3,
    L_WARNING = 4,
    L_NOTICE = 5,
    L_INFO = 6,
    L_DEBUG = 7,
  };

  // Reads the thresholds (absent file: none change) and opens the destination. -1 when a log file
  // cannot be opened. `rotate_count` - 1 numbered copies of about 1 MiB are kept: path_0 is the
  // newest. Until this was called messages are dropped.
  static int Initialize(Type type, const ustring& path, const ustring& level_file,
                        int rotate_count);
  // Closes a log file; later messages go to standard error.
  static void Destroy();

  template <class... Args>
  static void LogMsg(Level level, std::string_view category, const xchar* format,
                     const Args&... args) {
    if (!IsEnabled(level, category)) return;
    const LogArg list[] = {LogArg(args)..., LogArg(0)};
    LogMsg2(level, category, format, std::span<const LogArg>(list, sizeof...(Args)));
  }
  template <class... Args>
  static void LogMsg(Level level, const ustring& category, const xchar* format,
                     const Args&... args) {
    LogMsg(level, category.view(), format, args...);
  }
  // For a caller that has a list.
  static void LogMsg2(Level level, std::string_view category, const xchar* format,
                      std::span<const LogArg> args);

  static bool IsEnabled(Level level, std::string_view category);

  // Renames the numbered copies up by one, the file itself to path_0, and begins a new file. -1
  // when that fails; without a new file logging stops.
  static int Rotate();
};

// For code that has no ustring; `args` goes in place of the first text conversion.
void LogMSG_c(int level, const char* category, const wchar_t* format, const char* args);

}  // namespace tolven
