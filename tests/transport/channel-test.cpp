#include "lib/channel.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <string>
#include <thread>

#include "platform/fault-plan.h"
#include "platform/forwarding-sockets.h"
#include "support/channel-pair.h"
#include "support/system.h"
#include "support/temp-folder.h"
#include "transport/loopback.h"
#include "transport/scripted-sockets.h"

namespace tolven {
namespace {

using std::chrono::milliseconds;
using test::ChannelPair;
using test::ScriptedSockets;

struct TotalReporter : Channel::WriterProgressReporter {
  void Report(std::uint64_t count) override { bytes += count; }
};

// A file of `size` bytes, whose byte at each place is known, open for reading.
struct SourceFile {
  explicit SourceFile(std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) content += static_cast<char>(i * 31 >> 3);
    test::WriteFile(folder / "source", content);
    EXPECT_TRUE(
        platform::files().Open(folder / "source", platform::OpenMode::kRead, *file.receive()).ok());
  }
  void Grow(std::uintmax_t size) { std::filesystem::resize_file((folder / "source").str(), size); }
  test::TempFolder folder;
  std::string content;
  platform::ScopedFile file;
};

TEST(ChannelTest, ClosedChannelRefusesEverythingButNothing) {
  Channel channel;
  char data[4];
  std::size_t got = 9;
  EXPECT_TRUE(channel.IsClosed());
  EXPECT_EQ(channel.Read(data, 4), -2);
  EXPECT_EQ(channel.Write(data, 4), -2);
  EXPECT_EQ(channel.Sendfile(0, 0, 1, nullptr), -2);
  EXPECT_EQ(channel.FlushWrite(1), -1);
  EXPECT_EQ(channel.Read(data, 0, got), 0);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(channel.Open("host.example", 80), -2);
  EXPECT_EQ(channel.Open(nullptr, 80), 0);
  EXPECT_EQ(channel.Open("127.0.0.1", -1), 0);
  EXPECT_EQ(channel.Open(platform::kInvalidSocket, true), -3);
  EXPECT_EQ(channel.Open(platform::kInvalidSocket, false), -4);
  EXPECT_TRUE(channel.IsClosed());
  channel.Close();
}

TEST(ChannelTest, IntegersAreBigEndianAndReadsAreExact) {
  ChannelPair pair;
  ASSERT_EQ(pair.a.WriteByte(0xFE), 0);
  ASSERT_EQ(pair.a.WriteInt16(0x0102), 0);
  ASSERT_EQ(pair.a.WriteInt32(0x01020304), 0);
  ASSERT_EQ(pair.a.WriteInt64(0x8102030405060708), 0);
  ASSERT_EQ(pair.a.FlushWrite(0), 0);
  std::string bytes(15, ' ');
  std::size_t got = 0;
  ASSERT_EQ(pair.b.Read(bytes.data(), 15, got), 0);
  EXPECT_EQ(got, 15u);
  EXPECT_EQ(bytes, std::string("\xFE\x01\x02\x01\x02\x03\x04\x81\x02\x03\x04\x05\x06\x07\x08", 15));

  ASSERT_EQ(pair.b.Write(bytes.data() + 3, 12), 0);
  pair.b.Close();  // flushes
  std::uint32_t v32 = 0;
  std::uint64_t v64 = 0;
  EXPECT_EQ(pair.a.ReadInt32(v32), 0);
  EXPECT_EQ(pair.a.ReadInt64(v64), 0);
  EXPECT_EQ(v32, 0x01020304u);
  EXPECT_EQ(v64, 0x8102030405060708u);
  EXPECT_EQ(pair.a.ReadInt64(v64), -2);  // the end
  EXPECT_EQ(v64, 0x8102030405060708u);
  EXPECT_EQ(pair.a.Convert(v64), 0x0807060504030281u);
}

TEST(ChannelTest, OpensOnceAndAgainAfterClose) {
  const std::size_t before = test::OpenHandles();
  {
    ChannelPair pair;
    EXPECT_EQ(pair.a.Open(platform::NativeSocket{0}, true), -4);
    EXPECT_TRUE(pair.a.WriteByte(7) == 0 && pair.a.FlushWrite(0) == 0);
    std::uint8_t value = 0;
    EXPECT_EQ(pair.b.ReadByte(value), 0);  // the old connection is untouched
    pair.a.Close();
    pair.a.Close();
    EXPECT_TRUE(pair.a.IsClosed());
    // A peer that is gone is an error and never a signal.
    for (int i = 0; i < 3 && pair.b.WriteInt32(1) == 0 && pair.b.FlushWrite(0) == 0; ++i) {
    }
    EXPECT_EQ(pair.b.FlushWrite(0) + pair.b.WriteByte(1), -3);
    EXPECT_EQ(pair.b.ReadByte(value), -2);
  }
  EXPECT_EQ(test::OpenHandles(), before);
}

TEST(ChannelTest, SendfileDeliversTheSliceAndCountsExactlyItsBytes) {
  ChannelPair pair;
  const SourceFile source(1'300'000);
  TotalReporter reporter;
  ASSERT_EQ(pair.a.WriteInt32(42), 0);  // gathered, and not part of the file
  auto sender = std::async(std::launch::async, [&] {
    return pair.a.Sendfile(source.file.get(), 17, 1'200'000, &reporter);
  });
  std::uint32_t head = 0;
  std::string data(1'200'000, ' ');
  EXPECT_EQ(pair.b.ReadInt32(head), 0);
  EXPECT_EQ(head, 42u);
  EXPECT_EQ(pair.b.Read(data.data(), data.size()), 0);
  EXPECT_EQ(sender.get(), 0);
  EXPECT_TRUE(data == source.content.substr(17, 1'200'000));
  EXPECT_EQ(reporter.GetProgress(), 1'200'000u);
  EXPECT_EQ(pair.a.Sendfile(source.file.get(), 0, 0, nullptr), 0);

  // A file that has become shorter: an end, and no wait for bytes that never come.
  EXPECT_EQ(pair.a.Sendfile(source.file.get(), 1'299'000, 2'000, nullptr), -2);
  EXPECT_EQ(pair.a.WriteByte(1), -2);
}

TEST(ChannelTest, SlowPeerGetsTheWholeFileAndAStalledOneATimeOut) {
  constexpr std::uint64_t kSize = 64 << 20;
  ChannelPair pair;
  SourceFile source(0);
  source.Grow(kSize);
  TotalReporter reporter;
  std::string sink;
  std::uint64_t drained = 0;
  bool stalled = false;
  ScriptedSockets sockets(milliseconds(900), [&](int) {
    if (stalled) return;
    sink.resize(reporter.GetProgress() - drained);  // all that is under way
    EXPECT_EQ(pair.b.Read(sink.data(), sink.size()), 0);
    drained += sink.size();
  });
  pair.a.SetTimeout(1);
  EXPECT_EQ(pair.a.Sendfile(source.file.get(), 0, kSize, &reporter), 0);
  EXPECT_GT(sockets.now(), 3000);
  stalled = true;
  const int before = sockets.waits();
  EXPECT_EQ(pair.a.Sendfile(source.file.get(), 0, kSize, &reporter), -2);
  // Not before a second of silence, though something may still have gone out first.
  EXPECT_GE(sockets.waits() - before, 2);
  EXPECT_LE(sockets.waits() - before, 20);
}

TEST(ChannelTest, FlagEndsReadWriteSendfileAndConnect) {
  std::atomic<int> flag{0};
  constexpr std::size_t kSize = 64 << 20;
  SourceFile source(0);
  source.Grow(kSize);
  const std::string content(kSize, 'x');
  const auto abort_at_third = [&](int wait) { flag = wait >= 3 ? 1 : 0; };
  const std::function<int(Channel&)> blocking_calls[] = {
      [](Channel& channel) {
        std::uint8_t value = 0;
        return channel.ReadByte(value);
      },
      [&](Channel& channel) { return channel.Write(content.data(), kSize); },
      [&](Channel& channel) { return channel.Sendfile(source.file.get(), 0, kSize, nullptr); },
      [](Channel& channel) { return channel.ConvertToSSLChannel(false); },
  };
  for (const auto& call : blocking_calls) {
    ChannelPair pair;
    flag = 0;
    pair.a.SetTimeout(0);
    pair.a.SetFlag(&flag);
    ScriptedSockets sockets(milliseconds(1000), abort_at_third);
    EXPECT_EQ(call(pair.a), -2);
    EXPECT_EQ(sockets.waits(), 3);
    EXPECT_FALSE(pair.a.IsClosed());
    pair.a.SetFlag(nullptr);
  }
  {
    ScriptedSockets sockets(milliseconds(100), abort_at_third);
    sockets.ConnectForEver();
    Channel channel;
    flag = 0;
    channel.SetFlag(&flag);
    EXPECT_EQ(channel.Open("127.0.0.1", 9), -2);
    EXPECT_EQ(sockets.waits(), 3);
    channel.SetFlag(nullptr);
    for (const std::uint32_t seconds : {2U, 0U}) {  // none: no time to wait
      channel.SetTimeout(seconds);
      EXPECT_EQ(channel.Open("127.0.0.1", 9), -2);
      EXPECT_EQ(sockets.now(), 300 + 2000);
    }
  }
}

TEST(ChannelTest, FlagSetByAnotherThreadIsNoticedInTime) {
  ChannelPair pair;
  std::atomic<int> flag{0};
  pair.b.SetFlag(&flag);
  auto reader = std::async(std::launch::async, [&] {
    std::uint64_t value = 0;
    return pair.b.ReadInt64(value);
  });
  ASSERT_EQ(pair.a.WriteInt32(1), 0);  // half of what it waits for
  ASSERT_EQ(pair.a.FlushWrite(0), 0);
  const auto start = std::chrono::steady_clock::now();
  flag = 1;
  EXPECT_EQ(reader.get(), -2);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

// Whatever call fails, each run ends, says so or succeeds, and leaves no descriptor behind.
TEST(ChannelTest, SurvivesAFailureOfEverySocketCall) {
  const SourceFile source(100'000);
  const std::size_t before = test::OpenHandles();
  platform::FaultPlan plan;
  platform::ForwardingSockets faulty(platform::sockets(), plan.hook());
  for (unsigned nth = 1;; ++nth) {
    ASSERT_LT(nth, 1000u);
    bool good = true;
    {
      const test::Listener listener;
      platform::NativeSocket peer = platform::kInvalidSocket;
      Channel client;
      Channel server;
      platform::Sockets* const real = platform::SetSockets(&faulty);
      plan.Clear();
      plan.FailNth(nth, platform::ErrorKind::kRefused);
      std::string data(100'000, ' ');
      good = client.Open("127.0.0.1", listener.port) == 0 &&
             client.Sendfile(source.file.get(), 0, 100'000, nullptr) == 0 &&
             client.WriteInt32(5) == 0 && client.FlushWrite(0) == 0;
      if (good) {
        good = platform::sockets().Accept(listener.fd, peer).ok();
        if (good && server.Open(peer, true) != 0) {
          (void)real->Close(peer);
          good = false;
        }
      }
      std::uint32_t tail = 0;
      good = good && server.Read(data.data(), data.size()) == 0 && server.ReadInt32(tail) == 0;
      EXPECT_TRUE(!good || (data == source.content && tail == 5)) << nth;
      platform::SetSockets(real);
    }
    EXPECT_EQ(test::OpenHandles(), before) << nth;
    if (plan.failures() == 0) {
      EXPECT_TRUE(good);
      break;
    }
  }
}

}  // namespace
}  // namespace tolven
