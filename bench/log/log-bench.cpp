// What a message costs: below its threshold, as nearly all of the daemon's are, and written.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "lib/log.h"

namespace {

using tolven::Logger;
using tolven::ustring;

// A log file, with as many categories in the level file as the daemon has.
class LogFile {
 public:
  LogFile() : folder_(std::filesystem::temp_directory_path() / MakeName()) {
    std::filesystem::create_directories(folder_);
    const std::string levels = (folder_ / "levels").string();
    std::ofstream out(levels);
    out << "event_list_debug=4\n";
    for (int i = 0; i < 24; ++i) out << "category_" << i << "_debug=4\n";
    out.close();
    Logger::Initialize(Logger::FILE_LOGGER, (folder_ / "daemon.log").string(), levels, 4);
  }
  ~LogFile() {
    Logger::Destroy();
    std::filesystem::remove_all(folder_);
  }

 private:
  static std::string MakeName() {
    static int number = 0;
    return "tolven-bench-log-" + std::to_string(++number);
  }

  std::filesystem::path folder_;
};

void LogMsgBelowThreshold(benchmark::State& state) {
  static const LogFile log;
  const ustring path = "/home/user/Documents/report.txt";
  for (auto _ : state) {
    Logger::LogMsg(Logger::L_DEBUG, "event_list_debug", L"[DEBUG] event-list2(%d): %s, %llu\n",
                   __LINE__, path, std::uint64_t{77});
  }
}
BENCHMARK(LogMsgBelowThreshold)->ThreadRange(1, 2);

void LogMsgWritten(benchmark::State& state) {
  static const LogFile log;
  const ustring path = "/home/user/Documents/report.txt";
  for (auto _ : state) {
    Logger::LogMsg(Logger::L_ERR, "event_list_debug", L"[ERROR] event-list2(%d): %s, %llu\n",
                   __LINE__, path, std::uint64_t{77});
  }
}
BENCHMARK(LogMsgWritten);

}  // namespace
