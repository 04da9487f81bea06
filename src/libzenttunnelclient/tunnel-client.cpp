#include "libzenttunnelclient/tunnel-client.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include "libzenttunnelclient/tunnel-crypto.h"
#include "platform/clock.h"
#include "platform/sockets.h"

namespace tolven {

namespace {

using platform::SocketWait;

constexpr char kRelayName[] = "relay.tolvenhub.example";
constexpr std::size_t kBufferSize = 1024;  // of the target, the token and the request, NUL included
constexpr std::size_t kMaxLine = kBufferSize - 1;
// No relay has so much to say: what goes on and on is no header.
constexpr std::size_t kMaxHeader = 64 * 1024;
constexpr std::string_view kStatusKey = "X-Target-Status:";

// How late an abort may be noticed.
constexpr std::int64_t kAbortSliceMs = 100;

bool IsSet(const std::atomic<int>* flag) { return flag != nullptr && flag->load() != 0; }

// The waits of one direction, which share one time.
class Waiting {
 public:
  Waiting(SSL* ssl, long tv_sec, long tv_usec, int timeout, const std::atomic<int>* abort)
      : fd_(SSL_get_fd(ssl)),
        slice_(static_cast<int>(
            std::clamp<std::int64_t>(Milliseconds(tv_sec, tv_usec), 1, kAbortSliceMs))),
        // One wait there is in any case.
        timeout_(std::max<std::int64_t>(
            {std::int64_t{timeout} * 1000, Milliseconds(tv_sec, tv_usec), 1})),
        abort_(abort) {}

  bool IsAborted() const { return IsSet(abort_); }
  // 0, kTunnelBroken or kTunnelTimedOut.
  int For(SocketWait what) const {
    while (!IsAborted()) {
      const platform::Status status = platform::sockets().Wait(fd_, what, slice_);
      const bool is_over = platform::clock().MonotonicMilliseconds() - start_ >= timeout_;
      if (!status.ok() && !status.is(platform::ErrorKind::kTimedOut)) return kTunnelBroken;
      if (is_over) return kTunnelTimedOut;
      if (status.ok()) return 0;
    }
    return kTunnelBroken;
  }

 private:
  static std::int64_t Milliseconds(std::int64_t seconds, std::int64_t microseconds) {
    return seconds * 1000 + microseconds / 1000;
  }

  const platform::NativeSocket fd_;
  const int slice_;
  const std::int64_t timeout_;
  const std::atomic<int>* const abort_;
  const std::int64_t start_ = platform::clock().MonotonicMilliseconds();
};

// Whether the call that gave `result` is to be repeated; then `what` is to be waited for.
bool GoesOn(SSL* ssl, int result, SocketWait& what) {
  const int error = SSL_get_error(ssl, result);
  ERR_clear_error();
  if (error == SSL_ERROR_WANT_READ) what = SocketWait::kRead;
  if (error == SSL_ERROR_WANT_WRITE) what = SocketWait::kWrite;
  return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE;
}

// Calls `io` until it has moved something: what it gave, 0 at the end of the connection, or
// negative. `is_ready`: there is something to move before any wait.
template <class Io>
int Repeat(SSL* ssl, const Waiting& waiting, SocketWait what, bool is_ready, Io&& io) {
  for (;;) {
    if (const int code = is_ready ? 0 : waiting.For(what); code < 0) return code;
    is_ready = false;
    ERR_clear_error();
    const int result = io();
    if (result > 0) return result;
    if (!GoesOn(ssl, result, what)) return 0;
  }
}

// The header of the relay's answer, line by line.
class HeaderReader {
 public:
  HeaderReader(SSL* ssl, const Waiting& waiting) : ssl_(ssl), waiting_(waiting) {}

  // False when there is no whole line: the connection ended or broke, or nothing more came in time,
  // or the line or the header is too long.
  bool ReadLine(std::string& line) {
    line.clear();
    while (line.size() < kMaxLine && size_ < kMaxHeader) {
      std::array<char, kMaxLine> seen;
      const int room = static_cast<int>(kMaxLine - line.size());
      const int got = Move([&] { return SSL_peek(ssl_, seen.data(), room); });
      if (got <= 0) return false;
      const char* const end = std::find(seen.data(), seen.data() + got, '\n');
      const bool is_whole = end != seen.data() + got;
      const auto length = static_cast<std::size_t>(end - seen.data()) + (is_whole ? 1 : 0);
      if (!Take(length, line)) return false;
      if (is_whole) return true;
    }
    return false;
  }

 private:
  template <class Io>
  int Move(Io&& io) {
    return Repeat(ssl_, waiting_, SocketWait::kRead, SSL_pending(ssl_) > 0, io);
  }
  bool Take(std::size_t length, std::string& line) {
    const std::size_t end = line.size() + length;
    std::size_t at = line.size();
    line.resize(end);
    while (at < end) {
      const int got =
          Move([&] { return SSL_read(ssl_, line.data() + at, static_cast<int>(end - at)); });
      if (got <= 0) return false;
      at += static_cast<std::size_t>(got);
    }
    size_ += length;
    return true;
  }

  SSL* const ssl_;
  const Waiting& waiting_;
  std::size_t size_ = 0;
};

// The number of a status line goes to `status`; every other line leaves it alone. Only this very
// spelling of the key counts.
void ReadStatus(std::string_view line, int& status) {
  if (!line.starts_with(kStatusKey)) return;
  line.remove_prefix(kStatusKey.size());
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  if (line.starts_with('+') && !line.starts_with("+-")) line.remove_prefix(1);
  int value = 0;
  const auto read = std::from_chars(line.data(), line.data() + line.size(), value);
  if (read.ec == std::errc::result_out_of_range) value = kTunnelRefused;
  if (read.ec != std::errc::invalid_argument) status = value;
}

// Whether the relay has sent more than was read of it.
bool HasMore(SSL* ssl) {
  if (SSL_has_pending(ssl) != 0) return true;
  char byte = 0;
  std::size_t got = 0;
  return platform::sockets().Peek(SSL_get_fd(ssl), &byte, 1, got).ok() && got > 0;
}

int ReadAnswer(SSL* ssl, const Waiting& waiting) {
  int status = 0;
  HeaderReader reader(ssl, waiting);
  std::string line;
  while (reader.ReadLine(line) && line[0] != '\r' && line[0] != '\n') ReadStatus(line, status);
  if (waiting.IsAborted()) return kTunnelBroken;
  return status == 0 && HasMore(ssl) ? kTunnelRefused : status;
}

// Empty when it is too long.
std::string MakeToken(const std::string& target) {
  std::array<unsigned char, kBufferSize> token, text;
  const auto* const plain = reinterpret_cast<const unsigned char*>(target.data());
  const int length =
      ZENTCryptoEncrypt(token.data(), kBufferSize, plain, static_cast<int>(target.size()));
  const int written = ZENTCryptoBase64Encode(text.data(), kBufferSize, token.data(), length);
  if (length == 0 || written >= static_cast<int>(kBufferSize)) return {};
  return {reinterpret_cast<const char*>(text.data()), static_cast<std::size_t>(written)};
}

// Empty when the target's name is too long for a request.
std::string MakeRequest(const std::string& host, int port) {
  const std::string target = host + ":" + std::to_string(port);
  if (target.size() >= kBufferSize) return {};
  const std::string token = MakeToken(target);
  std::string request = "GET /zent-tunnel HTTP/1.1\r\nHost: ";
  request += kRelayName;
  request += "\r\nUpgrade: ZentrovaTunnel\r\nX-Target-Host: " + host;
  request += "\r\nX-Target-Port: " + std::to_string(port);
  request += "\r\nX-AuthToken: " + token + "\r\n\r\n";
  return token.empty() || request.size() >= kBufferSize ? std::string() : request;
}

}  // namespace

int ZENTTunnelNonBlockingWrite(SSL* ssl, const char* data, int length, long tv_sec, long tv_usec,
                               int timeout, const std::atomic<int>* abort) {
  const Waiting waiting(ssl, tv_sec, tv_usec, timeout, abort);
  const int sent =
      Repeat(ssl, waiting, SocketWait::kWrite, false, [&] { return SSL_write(ssl, data, length); });
  if (sent < 0) return sent;
  return sent > 0 ? 0 : kTunnelBroken;
}

int ZENTTunnelClientHandshake(SSL* ssl, const char* target_host, int target_port, long tv_sec,
                              long tv_usec, int timeout, const std::atomic<int>* abort) {
  const std::string request = MakeRequest(target_host, target_port);
  if (request.empty()) return kTunnelRefused;
  const int written = ZENTTunnelNonBlockingWrite(
      ssl, request.data(), static_cast<int>(request.size()), tv_sec, tv_usec, timeout, abort);
  if (written < 0) return written;
  return ReadAnswer(ssl, Waiting(ssl, tv_sec, tv_usec, timeout, abort));
}

}  // namespace tolven
