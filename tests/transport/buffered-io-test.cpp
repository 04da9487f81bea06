#include "libzentcat/lib/bio/buffered-io.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "platform/fake-clock.h"

namespace tolven::TolvenApplication {
namespace {

// What a FakeIO and its clones share: the script, and what was asked of them.
struct Wire {
  std::deque<std::string> arrivals;  // one for each time data is there; empty: the end
  std::vector<std::pair<const void*, std::size_t>> reads;  // those that gave data
  std::vector<std::string> writes;
  std::size_t accepts = SIZE_MAX;  // bytes that one write takes
  bool broken = false;
  bool dry = true;  // a read or write has to wait once more
  platform::FakeClock clock;
  std::chrono::milliseconds pause{0};  // the time that a wait takes
};

class FakeIO : public IOBase {
 public:
  explicit FakeIO(Wire& wire) : wire_(wire) {}

  std::int64_t read(void* data, std::size_t size) override {
    if (wire_.broken) return kFailed;
    if (wire_.dry || wire_.arrivals.empty()) return kWouldBlock;
    std::string& piece = wire_.arrivals.front();
    const std::size_t got = std::min(size, piece.size());
    if (got > 0) wire_.reads.emplace_back(data, size);
    std::copy_n(piece.data(), got, static_cast<char*>(data));
    piece.erase(0, got);
    if (piece.empty() && got > 0) {
      wire_.arrivals.pop_front();
      wire_.dry = true;
    }
    return static_cast<std::int64_t>(got);
  }
  std::int64_t write(const void* data, std::size_t size) override {
    if (wire_.broken) return kFailed;
    if (wire_.accepts == 0 || (wire_.dry && wire_.accepts != SIZE_MAX)) return kWouldBlock;
    wire_.dry = true;
    const std::size_t sent = std::min(size, wire_.accepts);
    wire_.writes.emplace_back(static_cast<const char*>(data), sent);
    return static_cast<std::int64_t>(sent);
  }
  int sync() override { return 0; }
  int close() override { return 0; }
  int selectFor(Mode, int) override {
    wire_.clock.Advance(wire_.pause);
    wire_.dry = false;
    if (wire_.accepts == SIZE_MAX) return wire_.arrivals.empty() ? 0 : 1;
    return wire_.accepts == 0 ? 0 : 1;
  }
  std::unique_ptr<IOBase> clone() const override { return std::make_unique<FakeIO>(wire_); }

 private:
  Wire& wire_;
};

class Controller : public BufferedIOController {
 public:
  bool abort() override { return looks++ >= abort_at; }
  void updateRead(std::size_t bytes) override { read += bytes; }
  void updateWrite(std::size_t bytes) override { written += bytes; }

  int looks = 0;
  int abort_at = 1 << 30;
  std::size_t read = 0;
  std::size_t written = 0;
};

class BufferedIOTest : public ::testing::Test {
 protected:
  void SetUp() override {
    clock_before_ = platform::SetClock(&wire_.clock);
    FakeIO io(wire_);
    ASSERT_EQ(layer_.load(io), 0);
    layer_.setController(&controller_);
  }
  void TearDown() override { platform::SetClock(clock_before_); }

  Wire wire_;
  Controller controller_;
  BufferedIO layer_;
  platform::Clock* clock_before_ = nullptr;
};

TEST_F(BufferedIOTest, LargeReadsPassTheBufferAndSmallOnesFillIt) {
  wire_.arrivals = {std::string(8192, 'x'), "abcdef", std::string(8191, 'y')};
  std::string data(8192, ' ');
  EXPECT_EQ(layer_.read(data.data(), 8192), 8192);
  ASSERT_EQ(wire_.reads.size(), 1u);
  EXPECT_EQ(wire_.reads[0].first, data.data());

  EXPECT_EQ(layer_.read(data.data(), 4), 4);  // takes the rest of the arrival along
  EXPECT_EQ(data.substr(0, 4), "abcd");
  ASSERT_EQ(wire_.reads.size(), 2u);
  EXPECT_EQ(wire_.reads[1].second, 8192u);
  EXPECT_EQ(layer_.read(data.data(), 2), 2);
  EXPECT_EQ(data.substr(0, 2), "ef");
  EXPECT_EQ(wire_.reads.size(), 2u);

  EXPECT_EQ(layer_.read(data.data(), 8191), 8191);
  EXPECT_NE(wire_.reads[2].first, data.data());
  EXPECT_EQ(controller_.read, 8192u + 6 + 8191);
}

TEST_F(BufferedIOTest, SmallWritesGatherAndLargeOnesGoStraightOut) {
  EXPECT_EQ(layer_.write("ab", 2), 2);
  EXPECT_EQ(layer_.write(std::string(8190, 'c').data(), 8190), 8190);
  EXPECT_TRUE(wire_.writes.empty());
  EXPECT_EQ(layer_.write("d", 1), 1);
  ASSERT_EQ(wire_.writes.size(), 1u);
  EXPECT_EQ(wire_.writes[0], "ab" + std::string(8190, 'c'));
  EXPECT_EQ(layer_.flush(), 0);
  EXPECT_EQ(wire_.writes.at(1), "d");
  EXPECT_EQ(layer_.write(std::string(8193, 'e').data(), 8193), 8193);
  ASSERT_EQ(wire_.writes.size(), 3u);  // no empty one before it
  EXPECT_EQ(wire_.writes[2].size(), 8193u);
  EXPECT_EQ(controller_.written, 2u + 8190 + 1 + 8193);
}

TEST_F(BufferedIOTest, TimeOutCountsSilenceAndNotTheWholeTransfer) {
  layer_.setTimeout(1);
  wire_.pause = std::chrono::milliseconds(900);
  wire_.arrivals.assign(20, "x");
  std::string data(21, ' ');
  EXPECT_EQ(layer_.read(data.data(), 20), 20);
  EXPECT_GT(wire_.clock.MonotonicMilliseconds(), 10'000);

  wire_.accepts = 1000;
  EXPECT_EQ(layer_.write(std::string(20'000, 'y').data(), 20'000), 20'000);

  const std::int64_t before = wire_.clock.MonotonicMilliseconds();
  wire_.accepts = 0;
  EXPECT_EQ(layer_.write(data.data(), 20), 20);
  EXPECT_EQ(layer_.flush(), -1);
  EXPECT_EQ(layer_.error(), BufferedIOBase::error_timeout);
  EXPECT_EQ(wire_.clock.MonotonicMilliseconds() - before, 1800);
  EXPECT_EQ(layer_.read(data.data(), 1), -1);  // stays in error

  layer_.clear();
  layer_.setTimeout(0);
  wire_.pause = std::chrono::hours(1);
  controller_.abort_at = controller_.looks + 50;
  EXPECT_EQ(layer_.read(data.data(), 1), 0);
  EXPECT_EQ(layer_.error(), BufferedIOBase::error_abort);
}

TEST_F(BufferedIOTest, EndAndFailureAreToldApart) {
  wire_.arrivals = {"abc", ""};
  char data[8];
  EXPECT_EQ(layer_.read(data, 8), 3);
  EXPECT_EQ(layer_.error(), BufferedIOBase::error_none);
  EXPECT_FALSE(layer_.isGoodToRead());
  EXPECT_TRUE(layer_.isGoodToWrite());

  wire_.broken = true;
  EXPECT_EQ(layer_.write("x", 1), 1);
  EXPECT_EQ(layer_.flush(), -1);
  EXPECT_EQ(layer_.error(), BufferedIOBase::error_syscall);
  EXPECT_FALSE(layer_.isGoodToWrite());

  BufferedIO other;
  EXPECT_EQ(layer_.handoverTo(other), -1);  // what it holds back cannot go out
  EXPECT_EQ(other.read(data, 1), -1);
  EXPECT_EQ(other.error(), BufferedIOBase::error_invalid);
}

TEST_F(BufferedIOTest, HandoverMovesTheConnectionAndWhatIsStillToBeSent) {
  wire_.arrivals = {"later"};
  EXPECT_EQ(layer_.write("first", 5), 5);
  BufferedIO other;
  EXPECT_EQ(layer_.handoverTo(other), 0);
  ASSERT_EQ(wire_.writes.size(), 1u);
  EXPECT_EQ(wire_.writes[0], "first");
  char data[5];
  EXPECT_EQ(layer_.read(data, 5), -1);
  EXPECT_EQ(other.read(data, 5), 5);
  EXPECT_EQ(controller_.read, 5u);  // the controller came along
}

}  // namespace
}  // namespace tolven::TolvenApplication
