// Sockets, on loopback.
#include "platform/sockets.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

#include "platform/files.h"
#include "support/loopback-listener.h"
#include "support/temp-folder.h"

namespace tolven::platform {
namespace {

using test::LoopbackListener;

constexpr int kPatienceMs = 60'000;

// Both ends of a connection; ours does not block.
class SocketsTest : public ::testing::Test {
 protected:
  SocketsTest() {
    ours_ = LoopbackListener::Connect(listener_.port());
    EXPECT_TRUE(listener_.Accept(theirs_));
    EXPECT_TRUE(sockets().SetBlocking(ours_, false).ok());
  }
  ~SocketsTest() override {
    CloseOurs();
    CloseTheirs();
  }
  void CloseOurs() { Close(ours_); }
  void CloseTheirs() { Close(theirs_); }

  // All of it, by the end that blocks.
  void Say(const std::string& text) const {
    std::size_t sent = 0;
    ASSERT_TRUE(sockets().Send(theirs_, text.data(), text.size(), sent).ok());
    ASSERT_EQ(sent, text.size());
  }
  // `size` bytes of what the other end has sent, or fewer at its end.
  static std::string Hear(NativeSocket socket, std::size_t size) {
    std::string text(size, '\0');
    std::size_t done = 0;
    for (std::size_t got = 1; done < size && got > 0; done += got) {
      EXPECT_TRUE(sockets().Receive(socket, text.data() + done, size - done, got).ok());
    }
    text.resize(done);
    return text;
  }
  // Sends until nothing more goes out.
  std::size_t Fill() const {
    const std::string block(1 << 20, 'x');
    std::size_t total = 0, sent = 0;
    Status status;
    for (; total < (std::size_t{1} << 30); total += sent) {
      status = sockets().Send(ours_, block.data(), block.size(), sent);
      if (!status.ok()) break;
    }
    EXPECT_EQ(status.kind, ErrorKind::kWouldBlock);
    return total;
  }

  LoopbackListener listener_;
  NativeSocket ours_ = kInvalidSocket, theirs_ = kInvalidSocket;

 private:
  static void Close(NativeSocket& socket) {
    if (socket == kInvalidSocket) return;
    EXPECT_TRUE(sockets().Close(socket).ok());
    socket = kInvalidSocket;
  }
};

TEST_F(SocketsTest, CarriesBytesAndTellsWhereBothEndsAre) {
  char byte = 'x';
  std::size_t moved = 9;
  EXPECT_EQ(sockets().Receive(ours_, &byte, 1, moved).kind, ErrorKind::kWouldBlock);
  EXPECT_EQ(sockets().Peek(ours_, &byte, 1, moved).kind, ErrorKind::kWouldBlock);
  EXPECT_EQ(sockets().Wait(ours_, SocketWait::kRead, 1).kind, ErrorKind::kTimedOut);
  EXPECT_TRUE(sockets().Wait(ours_, SocketWait::kWrite, 0).ok());
  EXPECT_TRUE(sockets().Wait(ours_, SocketWait::kReadWrite, kPatienceMs).ok());
  Say("ab");
  EXPECT_TRUE(sockets().Wait(ours_, SocketWait::kRead, kPatienceMs).ok());
  EXPECT_TRUE(sockets().Peek(ours_, &byte, 1, moved).ok() && moved == 1 && byte == 'a');
  EXPECT_EQ(Hear(ours_, 2), "ab");
  EXPECT_TRUE(sockets().Send(ours_, "c", 1, moved).ok() && moved == 1);
  EXPECT_EQ(Hear(theirs_, 1), "c");
  EXPECT_TRUE(sockets().SetNoDelay(ours_).ok() && sockets().SetLinger(ours_, 1).ok());

  int ours = 0, theirs = 0;
  std::string host;
  EXPECT_TRUE(sockets().LocalPort(ours_, ours).ok());
  EXPECT_TRUE(sockets().PeerAddress(theirs_, host, theirs).ok());
  EXPECT_EQ(ours, theirs);
  EXPECT_EQ(host, "127.0.0.1");
  EXPECT_TRUE(sockets().PeerAddress(ours_, host, theirs).ok() && theirs == listener_.port());
}

TEST_F(SocketsTest, AFullSocketWaitsUntilThePeerReads) {
  const std::size_t size = Fill();
  EXPECT_EQ(sockets().Wait(ours_, SocketWait::kWrite, 1).kind, ErrorKind::kTimedOut);
  auto reader = std::async(std::launch::async, [&] { return Hear(theirs_, size).size(); });
  EXPECT_TRUE(sockets().Wait(ours_, SocketWait::kWrite, kPatienceMs).ok());
  EXPECT_EQ(reader.get(), size);
}

TEST_F(SocketsTest, AnEndOrABreakCountsAsUsable) {
  Say("last");
  CloseTheirs();
  EXPECT_TRUE(sockets().Wait(ours_, SocketWait::kRead, kPatienceMs).ok());
  EXPECT_EQ(Hear(ours_, 4), "last");
  EXPECT_TRUE(sockets().Wait(ours_, SocketWait::kRead, kPatienceMs).ok());
  EXPECT_EQ(Hear(ours_, 1), "");
  // Writing is an error sooner or later, and never a signal.
  const std::string block(1 << 16, 'x');
  Status status;
  for (std::size_t sent = 0; status.ok();) {
    EXPECT_TRUE(sockets().Wait(ours_, SocketWait::kWrite, kPatienceMs).ok());
    status = sockets().Send(ours_, block.data(), block.size(), sent);
  }
  EXPECT_EQ(status.kind, ErrorKind::kRefused);
}

TEST_F(SocketsTest, ShuttingDownEndsBothDirections) {
  EXPECT_TRUE(sockets().ShutDown(ours_).ok());
  EXPECT_EQ(Hear(theirs_, 1), "");
  std::size_t sent = 0;
  EXPECT_EQ(sockets().Send(ours_, "x", 1, sent).kind, ErrorKind::kRefused);
}

TEST_F(SocketsTest, SendsPartsOfFiles) {
  const test::TempFolder folder;
  std::string content;
  for (int i = 0; content.size() < 1'000'000; ++i) content += std::to_string(i) + ' ';
  test::WriteFile(folder / "file", content);
  ScopedFile file;
  ASSERT_TRUE(files().Open(folder / "file", OpenMode::kRead, *file.receive()).ok());
  auto reader = std::async(std::launch::async, [&] { return Hear(theirs_, content.size() - 3); });
  // Up to its end, from a place that is not its start, and as much as is asked for.
  for (std::size_t at = 3, sent = 0; at < content.size(); at += sent) {
    const Status status = sockets().SendFile(ours_, file.get(), at, 400'000, sent);
    if (status.is(ErrorKind::kWouldBlock)) {
      sent = 0;
      ASSERT_TRUE(sockets().Wait(ours_, SocketWait::kWrite, kPatienceMs).ok());
      continue;
    }
    ASSERT_TRUE(status.ok());
    ASSERT_TRUE(sent > 0 && sent <= 400'000);
  }
  EXPECT_TRUE(reader.get() == content.substr(3));
  std::size_t sent = 9;
  EXPECT_TRUE(sockets().SendFile(ours_, file.get(), content.size(), 10, sent).ok());
  EXPECT_EQ(sent, 0U);
  EXPECT_TRUE(sockets().SendFile(ours_, file.get(), 5, 10, sent).ok());
  EXPECT_EQ(Hear(theirs_, 10), content.substr(5, 10));

  // Nothing waits for a peer that reads nothing, and what is asked for again goes out once.
  const std::size_t before = Fill();
  Status status = sockets().SendFile(ours_, file.get(), 0, 1000, sent);
  EXPECT_EQ(status.kind, ErrorKind::kWouldBlock);
  EXPECT_EQ(sockets().Wait(ours_, SocketWait::kWrite, 1).kind, ErrorKind::kTimedOut);
  EXPECT_EQ(sockets().SendFile(ours_, file.get(), 0, 1000, sent).kind, ErrorKind::kWouldBlock);
  auto rest = std::async(std::launch::async, [&] { return Hear(theirs_, before + 1000); });
  for (std::size_t at = 0; at < 1000; at += sent) {
    EXPECT_TRUE(sockets().Wait(ours_, SocketWait::kWrite, kPatienceMs).ok());
    status = sockets().SendFile(ours_, file.get(), at, 1000 - at, sent);
    ASSERT_TRUE(status.ok() || status.is(ErrorKind::kWouldBlock));
    if (!status.ok()) sent = 0;
  }
  EXPECT_TRUE(rest.get().substr(before) == content.substr(0, 1000));
}

TEST_F(SocketsTest, APortBelongsToOneAtATime) {
  NativeSocket other = kInvalidSocket;
  ASSERT_TRUE(sockets().Create(4, other).ok());
  Status status = sockets().BindLoopback(other, listener_.port());
  // Some systems let both bind, and one of them listen.
  if (status.ok()) status = sockets().Listen(other, 1);
  EXPECT_EQ(status.kind, ErrorKind::kAddressInUse);
  EXPECT_TRUE(sockets().Close(other).ok());
  ASSERT_TRUE(sockets().Create(4, other).ok());
  for (const int port : {-1, 65'536}) {
    EXPECT_EQ(sockets().BindLoopback(other, port).kind, ErrorKind::kInvalid);
  }
  std::vector<SocketAddress> addresses;
  ASSERT_TRUE(sockets().Resolve("127.0.0.1", 0, true, addresses).ok());
  EXPECT_TRUE(sockets().Bind(other, addresses.front()).ok());
  int port = 0;
  EXPECT_TRUE(sockets().LocalPort(other, port).ok() && port > 0);
  EXPECT_TRUE(sockets().IsValid(other));
  EXPECT_TRUE(sockets().Close(other).ok());
  EXPECT_FALSE(sockets().IsValid(kInvalidSocket));
  EXPECT_EQ(sockets().Wait(kInvalidSocket, SocketWait::kRead, 0).kind, ErrorKind::kInvalid);
}

TEST(SocketsConnectTest, TellsHowAConnectionAttemptEnds) {
  std::vector<SocketAddress> addresses;
  EXPECT_EQ(sockets().Resolve("no number", 1, true, addresses).kind, ErrorKind::kNotFound);
  ASSERT_TRUE(sockets().Resolve("::1", 80, true, addresses).ok());
  EXPECT_TRUE(addresses.front().family == 6 && addresses.front().port == 80);
  ASSERT_TRUE(sockets().Resolve("localhost", 80, false, addresses).ok());
  int closed = 0;
  { closed = LoopbackListener().port(); }
  LoopbackListener open;
  for (const int port : {open.port(), closed}) {
    ASSERT_TRUE(sockets().Resolve("127.0.0.1", port, true, addresses).ok());
    NativeSocket socket = kInvalidSocket;
    ASSERT_TRUE(sockets().Create(4, socket).ok());
    ASSERT_TRUE(sockets().SetBlocking(socket, false).ok());
    const Status begun = sockets().Connect(socket, addresses.front());
    EXPECT_TRUE(begun.ok() || begun.is(ErrorKind::kInProgress) || begun.is(ErrorKind::kRefused));
    EXPECT_TRUE(sockets().Wait(socket, SocketWait::kReadWrite, kPatienceMs).ok());
    const Status ended = begun.is(ErrorKind::kRefused) ? begun : sockets().PendingError(socket);
    EXPECT_EQ(ended.kind, port == closed ? ErrorKind::kRefused : ErrorKind::kNone);
    EXPECT_TRUE(sockets().Close(socket).ok());
  }
}

}  // namespace
}  // namespace tolven::platform
