#include "lib/log.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <sstream>
#include <unordered_map>
#include <vector>

#include "lib/config.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/mutex.h"

namespace tolven {
namespace {

using platform::ScopedFile;

constexpr std::size_t kRotateSize = 0x100000;
constexpr int kRotateCountAfterDestroy = 32;

using LevelTable = std::unordered_map<ustring, int, UStringHash, UStringEqual>;

struct State {
  Mutex lock;
  Logger::Type type GUARDED_BY(lock) = Logger::STDOUT_LOGGER;
  FILE* stream GUARDED_BY(lock) = nullptr;  // for the standard streams
  ScopedFile file GUARDED_BY(lock);
  // Characters written since the file was begun; below 0 there is no limit.
  long long size GUARDED_BY(lock) = -1;
  int rotate_count GUARDED_BY(lock) = 50;
  ustring path GUARDED_BY(lock);
  std::vector<std::unique_ptr<LevelTable>> tables GUARDED_BY(lock);

  // Thresholds are looked up without the lock: a table never changes once it is published, and all
  // that ever were stay alive.
  std::atomic<const LevelTable*> levels{nullptr};
  std::atomic<bool> has_destination{false};
};

// Never destroyed, so that objects which end after main() may still log.
State& state() {
  static State* const instance = new State;
  return *instance;
}

bool ParseLevel(const ustring& text, int& level) {
  std::istringstream in(text.str());
  return static_cast<bool>(in >> level);
}

void UpdateDestination(State& s) REQUIRES(s.lock) {
  s.has_destination = s.type == Logger::SYSLOG_LOGGER || s.stream != nullptr || s.file.valid();
}

// The caller holds the log's lock, which keeps std::localtime's buffer its own.
std::string TimeStamp() {
  const auto now = static_cast<std::time_t>(platform::clock().WallSeconds());
  const std::tm* const parts = std::localtime(&now);
  std::array<char, 64> text{};
  if (parts == nullptr) return {};
  return {text.data(), std::strftime(text.data(), text.size(), "%b %d %H:%M:%S ", parts)};
}

// Characters, not bytes.
long long CountCharacters(std::string_view text) {
  long long count = 0;
  for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return count;
}

int RotateLocked(State& s) REQUIRES(s.lock) {
  platform::Files& files = platform::files();
  const auto numbered = [&s](int n) REQUIRES(s.lock) {
    return ustring(s.path.str() + "_" + std::to_string(n));
  };
  // Older files need not exist.
  for (int i = s.rotate_count - 2; i >= 0; --i) {
    (void)files.RenameNoReplace(numbered(i), numbered(i + 1));
  }
  (void)files.RemoveFile(numbered(s.rotate_count - 1));
  s.file.Reset();
  int result = files.Rename(s.path, numbered(0)).ok() ? 0 : -1;
  if (result == 0 && !files.Open(s.path, platform::OpenMode::kAppend, *s.file.receive()).ok()) {
    result = -1;
  }
  UpdateDestination(s);
  return result;
}

void WriteFileLog(State& s, const std::string& line) REQUIRES(s.lock) {
  std::size_t written = 0;
  const bool complete =
      platform::files().Write(s.file.get(), line.data(), line.size(), written).ok();
  if (s.size < 0 || !complete) return;
  s.size += CountCharacters(line);
  if (s.size > static_cast<long long>(kRotateSize)) {
    RotateLocked(s);
    s.size = 0;
  }
}

}  // namespace

int Logger::Initialize(Type type, const ustring& path, const ustring& level_file,
                       int rotate_count) {
  State& s = state();
  MutexLock lock(s.lock);
  const LevelTable* const before = s.levels.load();
  auto table =
      before == nullptr ? std::make_unique<LevelTable>() : std::make_unique<LevelTable>(*before);
  table->try_emplace("default_component", 0);
  Config config;
  if (!level_file.empty() && config.read(level_file) == 0) {
    for (const auto& [category, text] : config) {
      int level = 0;
      if (ParseLevel(text, level)) (*table)[category] = level;
    }
  }
  s.levels = table.get();
  s.tables.push_back(std::move(table));

  s.type = type;
  s.stream = nullptr;
  s.file.Reset();
  int result = 0;
  if (type == STDOUT_LOGGER) s.stream = stdout;
  if (type == STDERR_LOGGER) s.stream = stderr;
  if (type == FILE_LOGGER) {
    s.size = -1;
    if (path.empty() ||
        !platform::files().Open(path, platform::OpenMode::kAppend, *s.file.receive()).ok()) {
      result = -1;
    } else {
      s.path = path;
      s.rotate_count = rotate_count;
      s.size = 0;
    }
  }
  UpdateDestination(s);
  return result;
}

void Logger::Destroy() {
  State& s = state();
  MutexLock lock(s.lock);
  if (s.type != FILE_LOGGER) return;
  s.file.Reset();
  s.size = -1;
  s.type = STDERR_LOGGER;
  s.stream = stderr;
  s.path.clear();
  s.rotate_count = kRotateCountAfterDestroy;
  UpdateDestination(s);
}

bool Logger::IsEnabled(Level level, std::string_view category) {
  const State& s = state();
  if (!s.has_destination.load(std::memory_order_relaxed)) return false;
  const LevelTable* const levels = s.levels.load(std::memory_order_acquire);
  if (levels == nullptr) return level <= L_WARNING;
  const auto found = levels->find(category);
  return level <= (found == levels->end() ? static_cast<int>(L_WARNING) : found->second);
}

void Logger::LogMsg2(Level level, std::string_view category, const xchar* format,
                     std::span<const LogArg> args) {
  if (!IsEnabled(level, category)) return;
  std::string message;
  FormatLogMessage(format, args, message);

  State& s = state();
  MutexLock lock(s.lock);
  if (s.type == ANDROID_LOGGER || s.type == SYSLOG_LOGGER) {
    std::fwrite(message.data(), 1, message.size(), stderr);
    return;
  }
  const std::string line = TimeStamp() + message;
  if (s.file.valid()) {
    WriteFileLog(s, line);
  } else if (s.stream != nullptr) {
    std::fwrite(line.data(), 1, line.size(), s.stream);
    std::fflush(s.stream);
  }
}

int Logger::Rotate() {
  State& s = state();
  MutexLock lock(s.lock);
  return RotateLocked(s);
}

void LogMSG_c(int level, const char* category, const wchar_t* format, const char* args) {
  const LogArg list[] = {LogArg(args)};
  Logger::LogMsg2(static_cast<Logger::Level>(level), category, format, list);
}

}  // namespace tolven
