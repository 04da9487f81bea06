#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/ssl.h>

#include <future>
#include <string>

#include "lib/channel.h"
#include "libzentcat/lib/bio/buffered-io.h"
#include "libzentcat/lib/bio/ssl-client-socket.h"
#include "libzentcat/lib/bio/ssl-server-socket.h"
#include "support/channel-pair.h"
#include "support/temp-folder.h"
#include "transport/certificates.h"
#include "transport/loopback.h"
#include "transport/scripted-sockets.h"

namespace tolven {
namespace {

using std::chrono::milliseconds;
using test::Certificates;
using test::ChannelPair;
using test::ScriptedSockets;
using namespace TolvenApplication;  // NOLINT: the classes under test

void Use(const Certificates& certificates) {
  Channel::SetCERTPath(certificates.certificate().str());
  Channel::SetPriKeyPath(certificates.key().str());
  Channel::SetVerifyCAPath(certificates.ca());
}

// Turns TLS on on both ends; the result of the client, a.
int Connect(ChannelPair& pair, const char* hostname, bool allow_untrust) {
  pair.a.SetAllowUntrust(allow_untrust);
  pair.a.SetSSLHostname(hostname);
  auto server = std::async(std::launch::async, [&] { return pair.b.ConvertToSSLChannel(true); });
  const int result = pair.a.ConvertToSSLChannel(false);
  EXPECT_EQ(server.get(), 0);
  return result;
}

TEST(TlsChannelTest, JudgesTheServersCertificate) {
  const Certificates certificates("hub.example", "DNS:*.alt.example");
  const Certificates stranger("other.example", "");
  const struct {
    const char* hostname;
    bool trusted;
    bool allow_untrust;
    int result;
  } cases[] = {
      {"hub.example", true, false, 0},
      {"x.alt.example", true, false, 0},
      {"", true, false, 0},
      {"evil.example", true, false, -24},
      {"hub.example", false, false, -24},
      {"evil.example", false, true, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.hostname);
    Use(certificates);
    if (!c.trusted) Channel::SetVerifyCAPath(stranger.ca());
    ChannelPair pair;
    EXPECT_EQ(Connect(pair, c.hostname, c.allow_untrust), c.result);
    EXPECT_FALSE(pair.a.IsClosed());
    // A refused channel is plain still: its integer is no TLS record to the server.
    ASSERT_EQ(pair.a.WriteInt32(0x16030300), 0);
    ASSERT_EQ(pair.a.FlushWrite(0), 0);
    std::uint32_t value = 0;
    pair.b.SetTimeout(1);
    if (c.result != 0) pair.a.Close();
    EXPECT_EQ(pair.b.ReadInt32(value), c.result == 0 ? 0 : -2);
  }
  // With nothing to trust no certificate is good.
  Channel::SetVerifyCAPath("");
  ChannelPair pair;
  EXPECT_EQ(Connect(pair, "hub.example", false), -24);
}

TEST(TlsChannelTest, CarriesIntegersAndFilesInPlace) {
  const Certificates certificates("hub.example", "");
  Use(certificates);
  ChannelPair pair;
  ASSERT_EQ(Connect(pair, "hub.example", false), 0);
  EXPECT_EQ(pair.a.ConvertToSSLChannel(false), 0);

  struct : Channel::WriterProgressReporter {
    void Report(std::uint64_t count) override { bytes += count; }
  } reporter;
  test::TempFolder folder;
  std::string content(1'000'003, ' ');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 >> 2);
  test::WriteFile(folder / "f", content);
  platform::ScopedFile file;
  ASSERT_TRUE(
      platform::files().Open(folder / "f", platform::OpenMode::kRead, *file.receive()).ok());
  auto sender = std::async(std::launch::async, [&] {
    return pair.a.WriteInt16(9) == 0 && pair.a.Sendfile(file.get(), 3, 1'000'000, &reporter) == 0 &&
           pair.a.WriteByte(5) == 0 && pair.a.FlushWrite(0) == 0;
  });
  std::uint16_t head = 0;
  std::uint8_t tail = 0;
  std::string data(1'000'000, ' ');
  EXPECT_EQ(pair.b.ReadInt16(head), 0);
  EXPECT_EQ(pair.b.Read(data.data(), data.size()), 0);
  EXPECT_EQ(pair.b.ReadByte(tail), 0);
  EXPECT_TRUE(sender.get());
  EXPECT_TRUE(data == content.substr(3));
  EXPECT_EQ(reporter.GetProgress(), 1'000'000u);

  EXPECT_EQ(pair.a.Sendfile(file.get(), 1'000'000, 4, nullptr), -2);  // holds three bytes
  pair.a.Close();
  EXPECT_EQ(pair.b.ReadByte(tail), -2);
}

TEST(TlsChannelTest, FailedSetUpLeavesThePlainChannelOpen) {
  Channel::SetCERTPath("/nowhere.pem");
  Channel::SetPriKeyPath("/nowhere.key");
  ChannelPair pair;
  EXPECT_EQ(pair.b.ConvertToSSLChannel(true), -2);
  {
    // A peer that never answers the handshake.
    ScriptedSockets sockets(milliseconds(400), [](int) {});
    pair.a.SetTimeout(1);
    EXPECT_EQ(pair.a.ConvertToSSLChannel(false), -2);
    EXPECT_EQ(sockets.now(), 1200);
  }
  // A peer that does not speak TLS.
  EXPECT_TRUE(pair.b.Write("HTTP/1.1 400\r\n\r\n", 16) == 0 && pair.b.FlushWrite(0) == 0);
  EXPECT_EQ(pair.a.ConvertToSSLChannel(false), -2);
  EXPECT_FALSE(pair.a.IsClosed());
}

TEST(TlsChannelTest, DirectSetUpFailsCleanlyWhereItsCipherIsGone) {
  const Certificates certificates("hub.example", "");
  Use(certificates);
  Channel channel;
  SSL* ssl = nullptr;
  SSL_CTX* context = nullptr;
  EXPECT_EQ(channel.InitSSL(ssl, context, true, true), 0);
  Channel::DeinitSSL(ssl, context, true);
  EXPECT_EQ(context, nullptr);

  SSL_CTX* const probe = SSL_CTX_new(TLS_client_method());
  const bool has_cipher = SSL_CTX_set_cipher_list(probe, "RC4-MD5") == 1;
  SSL_CTX_free(probe);
  EXPECT_EQ(channel.InitSSL(ssl, context, false, true), has_cipher ? 0 : -2);
  EXPECT_EQ(ssl != nullptr, has_cipher);
  Channel::DeinitSSL(ssl, context, false);
  Channel::SetPriKeyPath("/nowhere.key");
  EXPECT_EQ(channel.InitSSL(ssl, context, true, true), -2);
  EXPECT_EQ(context, nullptr);
}

// A client and a server layer on the two ends of a connection.
class TlsLayersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const test::Listener listener;
    platform::NativeSocket peer = platform::kInvalidSocket;
    ASSERT_EQ(client_socket_.connectIPv4("127.0.0.1", listener.port, 5, nullptr), 0);
    ASSERT_TRUE(platform::sockets().Accept(listener.fd, peer).ok());
    server_socket_.assign(peer);
    ASSERT_EQ(server_socket_.setNoDelay(), 0);
    ASSERT_EQ(plain_client_.load(client_socket_), 0);
    ASSERT_EQ(plain_server_.load(server_socket_), 0);
    plain_client_.setTimeout(1);
    ASSERT_EQ(server_.setPrivateKey(certificates_.key().str()), 0);
    ASSERT_EQ(server_.setCertificate(certificates_.certificate().str()), 0);
  }
  void TearDown() override {
    client_socket_.close();
    server_socket_.close();
  }
  void StartTls() {
    auto server = std::async(std::launch::async, [&] { return plain_server_.handoverTo(server_); });
    EXPECT_EQ(plain_client_.handoverTo(client_), 0);
    EXPECT_EQ(server.get(), 0);
  }
  static void Say(BufferedIOBase& from, BufferedIOBase& to, const std::string& text) {
    ASSERT_EQ(from.write(text.data(), text.size()), static_cast<std::int64_t>(text.size()));
    ASSERT_EQ(from.flush(), 0);
    std::string heard(text.size(), ' ');
    ASSERT_EQ(to.read(heard.data(), heard.size()), static_cast<std::int64_t>(heard.size()));
    EXPECT_EQ(heard, text);
  }

  const Certificates certificates_{"hub.example", ""};
  Socket client_socket_;
  Socket server_socket_;
  BufferedIO plain_client_;
  BufferedIO plain_server_;
  SslClientSocket client_;
  SslServerSocket server_;
};

TEST_F(TlsLayersTest, ConnectionGoesToTlsAndBackMoreThanOnce) {
  for (int round = 0; round < 2; ++round) {
    Say(plain_client_, plain_server_, "plain");
    StartTls();
    char byte = 0;
    EXPECT_EQ(plain_client_.read(&byte, 1), -1);
    plain_client_.clear();
    if (round == 0) {  // the other round goes back with nothing said
      Say(client_, server_, "hidden");
      Say(server_, client_, std::string(70'000, 'h'));
    }
    ASSERT_EQ(client_.handoverTo(plain_client_), 0);
    ASSERT_EQ(server_.handoverTo(plain_server_), 0);
    Say(plain_server_, plain_client_, "plain again");
  }
}

TEST_F(TlsLayersTest, SmallWritesShareARecord) {
  StartTls();
  BIO* const wire = SSL_get_wbio(client_.ssl());
  const std::uint64_t before = BIO_number_written(wire);
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(client_.write("abcd", 4), 4);
  EXPECT_EQ(BIO_number_written(wire), before);
  ASSERT_EQ(client_.flush(), 0);
  EXPECT_LT(BIO_number_written(wire) - before, 8000u + 100);
  std::string heard(8000, ' ');
  EXPECT_EQ(server_.read(heard.data(), heard.size()), 8000);
}

TEST_F(TlsLayersTest, PiecesOfARecordRenewTheTimeOut) {
  StartTls();
  BIO* const memory = BIO_new(BIO_s_mem());
  SSL_set0_wbio(server_.ssl(), memory);
  const std::string text(5000, 't');
  ASSERT_EQ(server_.write(text.data(), text.size()), 5000);
  ASSERT_EQ(server_.flush(), 0);
  char* bytes = nullptr;
  const long length = BIO_get_mem_data(memory, &bytes);
  const std::string record(bytes, static_cast<std::size_t>(length));

  std::size_t sent = 0;
  ScriptedSockets sockets(milliseconds(900), [&](int) {
    const std::string piece = record.substr(sent, 100);
    if (piece.empty()) return;
    EXPECT_GT(server_socket_.write(piece.data(), piece.size()), 0);
    sent += piece.size();
  });
  std::string heard(5000, ' ');
  EXPECT_EQ(client_.read(heard.data(), heard.size()), 5000);
  EXPECT_EQ(heard, text);
  EXPECT_GT(sockets.now(), 40'000);

  sent = record.size() - 1;
  EXPECT_EQ(client_.read(heard.data(), 1), 0);  // one byte of a record, and then silence
  EXPECT_EQ(client_.error(), BufferedIOBase::error_timeout);
}

}  // namespace
}  // namespace tolven
