#include "lib/log.h"

#include <fmt/chrono.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

#include "lib/config.h"
#include "lib/log-format.h"
#include "lib/log-levels.h"
#include "lib/log-text.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/mutex.h"

namespace tolven {

namespace {

constexpr std::int64_t kRotateSize = 0x100000;  // characters
constexpr int kDefaultRotateCount = 50;
constexpr int kRotateCountAfterDestroy = 32;
constexpr std::size_t kTimeSize = 1024;

struct State {
  Mutex lock;
  Logger::Type type GUARDED_BY(lock) = Logger::STDOUT_LOGGER;
  // Where messages go: a standard stream, or `file`, or nowhere.
  std::FILE* stream GUARDED_BY(lock) = nullptr;
  platform::NativeFile file GUARDED_BY(lock) = platform::kInvalidFile;
  std::int64_t size GUARDED_BY(lock) = -1;  // characters; negative: no limit
  int rotate_count GUARDED_BY(lock) = kDefaultRotateCount;
  ustring path GUARDED_BY(lock);
  std::int64_t stamp_second GUARDED_BY(lock) = -1;
  std::string stamp GUARDED_BY(lock);

  // What every message looks at, without the lock: tables are never changed once published, and
  // never freed, since a thread may still be reading an older one.
  std::atomic<const LogLevels*> levels = nullptr;
  std::vector<std::unique_ptr<const LogLevels>> tables GUARDED_BY(lock);
};

// Lives to the very end of the process, since threads may log that long.
State& state() {
  static State* const instance = new State;
  return *instance;
}

void PublishLevels(State& s, const ustring& level_file) REQUIRES(s.lock) {
  auto table = s.tables.empty() ? std::make_unique<LogLevels>()
                                : std::make_unique<LogLevels>(*s.tables.back());
  table->try_emplace("default_component", 0);
  Config config;
  if (!level_file.empty() && config.read(level_file) == 0) MergeLogLevels(config, *table);
  s.tables.push_back(std::move(table));
  s.levels.store(s.tables.back().get(), std::memory_order_release);
}

void CloseDestination(State& s) REQUIRES(s.lock) {
  s.stream = nullptr;
  if (s.file == platform::kInvalidFile) return;
  (void)platform::files().Close(s.file);
  s.file = platform::kInvalidFile;
}

int OpenFile(State& s, const ustring& path) REQUIRES(s.lock) {
  platform::NativeFile file = platform::kInvalidFile;
  if (!platform::files().Open(path, platform::OpenMode::kAppend, file).ok()) return -1;
  s.file = file;
  return 0;
}

int RotateFiles(State& s) REQUIRES(s.lock) {
  platform::Files& files = platform::files();
  const auto numbered = [&s](int number)
                            REQUIRES(s.lock) { return s.path + "_" + std::to_string(number); };
  // Older files need not exist.
  for (int i = s.rotate_count - 2; i >= 0; --i) {
    (void)files.Rename(numbered(i), numbered(i + 1));
  }
  (void)files.RemoveFile(numbered(s.rotate_count - 1));
  CloseDestination(s);
  if (!files.Rename(s.path, numbered(0)).ok()) return -1;
  return OpenFile(s, s.path);
}

const std::string& TimeStamp(State& s) REQUIRES(s.lock) {
  const std::int64_t now = platform::clock().WallSeconds();
  if (now != s.stamp_second || s.stamp.empty()) {
    char text[kTimeSize];
    const std::tm local = fmt::localtime(static_cast<std::time_t>(now));
    s.stamp.assign(text, std::strftime(text, sizeof text, "%b %d %H:%M:%S ", &local));
    s.stamp_second = now;
  }
  return s.stamp;
}

bool WriteStream(std::FILE* stream, const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stream) == text.size() &&
         std::fflush(stream) == 0;
}

void WriteFile(State& s, const std::string& text) REQUIRES(s.lock) {
  std::size_t written = 0;
  if (!platform::files().Write(s.file, text.data(), text.size(), written).ok()) return;
  if (s.size < 0) return;
  s.size += static_cast<std::int64_t>(CountCharacters(text));
  if (s.size <= kRotateSize) return;
  (void)RotateFiles(s);
  s.size = 0;
}

}  // namespace

int Logger::Initialize(Type type, const ustring& path, const ustring& level_file,
                       int rotate_count) {
  State& s = state();
  const MutexLock hold(s.lock);
  PublishLevels(s, level_file);
  CloseDestination(s);
  s.type = type;
  s.size = -1;
  if (type != FILE_LOGGER) {
    s.stream = type == STDOUT_LOGGER ? stdout : stderr;
    return 0;
  }
  if (path.empty() || OpenFile(s, path) < 0) return -1;
  s.path = path;
  s.rotate_count = rotate_count;
  s.size = 0;
  return 0;
}

void Logger::Destroy() {
  State& s = state();
  const MutexLock hold(s.lock);
  if (s.type != FILE_LOGGER) return;
  CloseDestination(s);
  s.size = -1;
  s.type = STDERR_LOGGER;
  s.stream = stderr;
  s.path.clear();
  s.rotate_count = kRotateCountAfterDestroy;
}

int Logger::Rotate() {
  State& s = state();
  const MutexLock hold(s.lock);
  return s.path.empty() ? -1 : RotateFiles(s);
}

bool Logger::IsEnabled(Level level, LogCategory category) {
  const LogLevels* const levels = state().levels.load(std::memory_order_acquire);
  if (levels == nullptr) return false;
  const auto found = levels->find(category.name);
  const int threshold = found == levels->end() ? L_WARNING : found->second;
  return threshold >= level;
}

void Logger::LogMsg2(Level level, LogCategory category, const xchar* format,
                     std::span<const LogArg> args) {
  if (IsEnabled(level, category)) Write(format, args);
}

void Logger::Write(const xchar* format, std::span<const LogArg> args) {
  std::string message;
  FormatLogMessage(message, format, args);
  State& s = state();
  const MutexLock hold(s.lock);
  if (s.type == ANDROID_LOGGER || s.type == SYSLOG_LOGGER) {
    (void)WriteStream(stderr, message);
  } else if (s.stream != nullptr) {
    (void)WriteStream(s.stream, message.insert(0, TimeStamp(s)));
  } else if (s.file != platform::kInvalidFile) {
    WriteFile(s, message.insert(0, TimeStamp(s)));
  }
}

void LogMSG_c(int level, const char* category, const wchar_t* format, const char* args) {
  const LogArg list[] = {LogArg(args)};
  Logger::LogMsg2(static_cast<Logger::Level>(level), ustring(category), format,
                  std::span<const LogArg>(list, args == nullptr ? 0 : 1));
}

}  // namespace tolven
