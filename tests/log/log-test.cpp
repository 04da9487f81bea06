#include "lib/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <thread>
#include <vector>

#include "platform/fake-clock.h"
#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

constexpr std::int64_t kNow = 1'700'000'000;
constexpr std::size_t kRotateSize = 0x100000;

class LoggerTest : public testing::Test {
 protected:
  LoggerTest() : before_(platform::SetClock(&clock_)) {
    const std::time_t now = kNow;
    char text[64];
    stamp_.assign(text, std::strftime(text, sizeof text, "%b %d %H:%M:%S ", std::localtime(&now)));
  }
  ~LoggerTest() override {
    Logger::Destroy();
    platform::SetClock(before_);
  }

  int Start(int rotate_count, const ustring& levels = "") {
    return Logger::Initialize(Logger::FILE_LOGGER, path_, levels, rotate_count);
  }
  // Writes a message that brings the file to exactly `size` characters, of two bytes each.
  void FillUpTo(std::size_t size) {
    std::string text;
    for (std::size_t i = stamp_.size(); i < size; ++i) text += "\xC3\xA4";
    Logger::LogMsg(Logger::L_ERR, "client_debug", L"%s", text);
  }
  void Log(const char* text) { Logger::LogMsg(Logger::L_ERR, "client_debug", L"%s\n", text); }
  std::string Written() const { return test::ReadFile(path_); }
  std::string Numbered(int number) const {
    return test::ReadFile(path_ + "_" + std::to_string(number));
  }

  const test::TempFolder folder_;
  const ustring path_ = folder_ / "daemon.log";
  platform::FakeClock clock_{kNow};
  platform::Clock* const before_;
  std::string stamp_;
};

TEST_F(LoggerTest, LevelFileRaisesAndLowersThresholds) {
  test::WriteFile(folder_ / "levels", "loud_debug=7\nquiet_debug=0\nbad_debug=x7\n");
  ASSERT_EQ(Start(4, folder_ / "levels"), 0);
  const auto written = [&](const char* category) {
    std::string levels;
    for (int level = Logger::L_EMERG; level <= Logger::L_DEBUG; ++level) {
      const std::size_t size = Written().size();
      Logger::LogMsg(static_cast<Logger::Level>(level), category, L"x\n");
      if (Written().size() > size) levels += std::to_string(level);
    }
    return levels;
  };
  EXPECT_EQ(written("loud_debug"), "01234567");
  EXPECT_EQ(written("quiet_debug"), "0");
  EXPECT_EQ(written("bad_debug"), "01234");
  EXPECT_EQ(written("absent_debug"), "01234");
  EXPECT_EQ(written("default_component"), "0");

  // A file that is malformed or gone leaves the levels as they are.
  test::WriteFile(folder_ / "levels", "quiet_debug=7\nmal formed\n");
  ASSERT_EQ(Start(4, folder_ / "levels"), 0);
  EXPECT_EQ(written("quiet_debug"), "0");
  ASSERT_EQ(Start(4, folder_ / "none"), 0);
  EXPECT_EQ(written("loud_debug"), "01234567");
}

TEST_F(LoggerTest, WritesTheTimeAndTheMessageAndNothingElse) {
  test::WriteFile(path_, "old\n");
  ASSERT_EQ(Start(4), 0);
  Logger::LogMsg(Logger::L_ERR, ustring("client_debug"), L"[ERROR] a(%d): no end", 3);
  LogMSG_c(Logger::L_ERR, "client_debug", L" %s\n", "bridge");
  LogMSG_c(Logger::L_DEBUG, "client_debug", L"unseen\n", nullptr);
  EXPECT_EQ(Written(), "old\n" + stamp_ + "[ERROR] a(3): no end" + stamp_ + " bridge\n");

  // Standard streams: the two without a destination of their own have no time.
  const struct {
    Logger::Type type;
    std::string out, err;
  } cases[] = {{Logger::STDOUT_LOGGER, stamp_ + "x\n", ""},
               {Logger::STDERR_LOGGER, "", stamp_ + "x\n"},
               {Logger::SYSLOG_LOGGER, "", "x\n"},
               {Logger::ANDROID_LOGGER, "", "x\n"}};
  for (const auto& c : cases) {
    ASSERT_EQ(Logger::Initialize(c.type, "", "", 50), 0);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Log("x");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out) << c.type;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.err) << c.type;
  }

  // After the end of a file logger messages go to standard error.
  ASSERT_EQ(Start(4), 0);
  Logger::Destroy();
  testing::internal::CaptureStderr();
  Log("late");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), stamp_ + "late\n");
  EXPECT_EQ(Logger::Rotate(), -1);
}

TEST_F(LoggerTest, RotatesBehindTheMessageThatCrossesTheLimit) {
  ASSERT_EQ(Start(4), 0);
  FillUpTo(kRotateSize);  // counted in characters: twice as many bytes
  EXPECT_EQ(Numbered(0), "");
  Log("crossing");
  EXPECT_EQ(Written(), "");
  EXPECT_THAT(Numbered(0), testing::EndsWith(stamp_ + "crossing\n"));
  for (const char* text : {"one", "two", "three", "four"}) {
    Log(text);
    ASSERT_EQ(Logger::Rotate(), 0);
  }
  Log("five");
  EXPECT_EQ(Written(), stamp_ + "five\n");
  EXPECT_EQ(Numbered(0), stamp_ + "four\n");
  EXPECT_EQ(Numbered(1), stamp_ + "three\n");
  EXPECT_EQ(Numbered(2), stamp_ + "two\n");
  EXPECT_FALSE(std::filesystem::exists(path_.str() + "_3"));

  // A count of one keeps a single old file.
  ASSERT_EQ(Start(1), 0);
  ASSERT_EQ(Logger::Rotate(), 0);
  EXPECT_EQ(Numbered(0), stamp_ + "five\n");
  EXPECT_EQ(Numbered(1), stamp_ + "three\n");
}

TEST_F(LoggerTest, FailuresStayInside) {
  EXPECT_EQ(Start(4, ""), 0);
  EXPECT_EQ(Logger::Initialize(Logger::FILE_LOGGER, "", "", 4), -1);
  EXPECT_EQ(Logger::Initialize(Logger::FILE_LOGGER, folder_ / "no/such/file", "", 4), -1);
  Log("dropped");
  ASSERT_EQ(Start(4), 0);

  platform::FaultPlan plan;
  platform::ForwardingFiles faulty(platform::files(), plan.hook());
  platform::Files* const real = platform::SetFiles(&faulty);
  plan.FailNth("Write", 1, platform::ErrorKind::kNoSpace);
  FillUpTo(2 * kRotateSize);  // lost, not counted
  Log("kept");
  const std::string kept = Written();
  // Without the name for the old file there is no new one, and the log is silent.
  plan.FailNth("Rename", 4, platform::ErrorKind::kAccessDenied);
  const int rotated = Logger::Rotate();
  Log("silent");
  platform::SetFiles(real);
  EXPECT_EQ(rotated, -1);
  EXPECT_EQ(kept, stamp_ + "kept\n");
  EXPECT_EQ(Written(), kept);
}

TEST_F(LoggerTest, ThreadsDoNotMixTheirLines) {
  ASSERT_EQ(Start(4), 0);
  constexpr int kThreads = 4, kLines = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) {
        Logger::LogMsg(Logger::L_ERR, "client_debug", L"%d:%d\n", t, i);
        Logger::LogMsg(Logger::L_DEBUG, "client_debug", L"off %d\n", i);
      }
    });
  }
  ASSERT_EQ(Start(4), 0);  // the levels and the file change under them
  for (std::thread& thread : threads) thread.join();
  std::vector<int> next(kThreads);
  std::istringstream lines(Written());
  for (std::string line; std::getline(lines, line);) {
    int t = -1, i = -1;
    ASSERT_EQ(std::sscanf(line.c_str() + stamp_.size(), "%d:%d", &t, &i), 2) << line;
    ASSERT_EQ(next.at(static_cast<std::size_t>(t))++, i);
  }
  EXPECT_THAT(next, testing::Each(kLines));
}

}  // namespace
}  // namespace tolven
