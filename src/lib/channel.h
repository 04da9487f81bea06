// The byte pipe of all protocol traffic: a connected TCP socket with buffers, big-endian integers,
// a time-out, an abort flag, a file path that bypasses the write buffer, and TLS that can be turned
// on in place. A channel is closed, plain or TLS; it goes from closed to plain by Open, from plain
// to TLS by ConvertToSSLChannel, and back to closed by Close alone.
//
// Results are 0, or negative: -2 I/O failed or the channel is closed, -3 a socket option failed,
// -4 already open or not a socket, -24 the peer's certificate was refused. A failure does not close
// the channel; what the peer has of an interrupted message is then unknown.
//
// One thread drives a channel. Only the flag of SetFlag may be touched by others.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/files.h"
#include "platform/sockets.h"
#include "ustring/ustring.h"

struct ssl_st;
struct ssl_ctx_st;

namespace tolven {

namespace TolvenApplication {
class BufferedIOBase;
class Socket;
class SslSocket;
}  // namespace TolvenApplication

class AbortHandler;

class Channel {
 public:
  using CH_SOCK_T = platform::NativeSocket;
  using CH_FILE_T = platform::NativeFile;
  using SSL = ssl_st;
  using SSL_CTX = ssl_ctx_st;

  // Is told, in the channel's thread, of each piece of a file that was taken over for sending.
  class WriterProgressReporter {
   public:
    virtual ~WriterProgressReporter() = default;
    virtual void Report(std::uint64_t count) { bytes = count; }
    virtual std::uint64_t GetProgress() { return bytes; }

   protected:
    std::uint64_t bytes = 0;
  };

  explicit Channel(std::size_t capacity = 0x14000);
  virtual ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  virtual int Open(const char*) { return 0; }
  // Adopts a connected socket; `configure` sets its linger time and makes it non-blocking. After a
  // failure the socket is still the caller's.
  virtual int Open(CH_SOCK_T fd, bool configure);
  // Connects to an IPv4 or IPv6 literal. What was open is closed. Null or a negative port: 0, and
  // nothing happens.
  virtual int Open(const char* host, int port);
  // Flushes, and ends the connection. Safe on a closed channel.
  virtual void Close();
  // How long, in seconds, connecting may take, and any I/O without a single byte moved; 0: no limit
  // for I/O. Survives Close.
  virtual void SetTimeout(std::uint32_t seconds);
  // `*flag`, which stays the caller's, ends the current and all later I/O once it is not 0. Null:
  // no flag. Survives Close, which reads it, too.
  virtual void SetFlag(std::atomic<int>* flag);
  // Runs the handshake on the open connection, with what SetAllowUntrust and SetSSLHostname told
  // or, as the server, with the key and certificate of the process. After a failure the channel is
  // still plain and open. On a TLS channel: 0, and nothing happens.
  virtual int ConvertToSSLChannel(bool server);

  // Integers are big-endian. After a failure the target is as it was.
  virtual int ReadByte(std::uint8_t& value);
  virtual int ReadInt16(std::uint16_t& value);
  virtual int ReadInt32(std::uint32_t& value);
  virtual int ReadInt64(std::uint64_t& value);
  virtual int WriteByte(std::uint8_t value);
  virtual int WriteInt16(std::uint16_t value);
  virtual int WriteInt32(std::uint32_t value);
  virtual int WriteInt64(std::uint64_t value);
  // Exactly `size` bytes, or a failure. What is written reaches the peer at the latest on
  // FlushWrite(0).
  virtual int Read(char* data, std::size_t size);
  virtual int Read(char* data, std::size_t size, std::size_t& got);
  virtual int Write(const char* data, std::size_t size);
  // Part of a file, which must hold it. On a plain channel the kernel moves the bytes. `reporter`
  // may be null.
  virtual int Sendfile(CH_FILE_T file, std::uint64_t offset, std::uint64_t length,
                       WriterProgressReporter* reporter);
  virtual void ClearRead() {}
  virtual void ClearWrite() {}
  virtual int FlushWrite(int mode);  // 0 flushes; anything else: -1, and nothing happens
  virtual int GetPeerInfo(std::string& host, int& port);  // -3: not offered here
  virtual bool IsClosed() const { return m_bio == nullptr; }
  // The argument with its bytes reversed.
  virtual std::uint64_t Convert(std::uint64_t value);
  virtual std::uint32_t Convert(std::uint32_t value);
  virtual std::uint16_t Convert(std::uint16_t value);

  void SetAllowUntrust(bool allow) { m_is_allowing_untrust = allow; }
  bool IsAllowingUntrust() const { return m_is_allowing_untrust; }
  // The name to find in the server's certificate; empty: any.
  void SetSSLHostname(const ustring& name) { m_ssl_hostname = name; }

  // Process-wide, set before the first channel exists: the server's certificate and key (PEM), and
  // the authorities that clients trust (a PEM file or a folder of hashed ones).
  static void SetCERTPath(const std::string& path) { m_cert_path = path; }
  static void SetPriKeyPath(const std::string& path) { m_key_path = path; }
  static void SetVerifyCAPath(const ustring& path) { m_ca_path = path; }

  // TLS objects for code that drives OpenSSL itself on this channel's socket: 0, or -2 with both
  // null. The client's only cipher, RC4-MD5, has been removed from current builds of OpenSSL, where
  // InitSSL for a client therefore fails.
  int InitSSL(SSL*& ssl, SSL_CTX*& context, bool server, bool allow_untrust);
  // Ends what InitSSL made; `quiet` without telling the peer.
  static void DeinitSSL(SSL*& ssl, SSL_CTX*& context, bool quiet);
  static int InstallCERT(SSL_CTX* context);
  static int InstallPriKey(SSL_CTX* context);
  static int InstallVerifyCA(SSL_CTX* context);

 protected:
  // A connected socket, or -1.
  virtual CH_SOCK_T CreateSocketAndConnectWithTimeout(const char* host, int port);

  // Puts a plain layer, ready to use, on m_socket: 0 or -2.
  int CreateBufferIO();
  // A TLS layer, not yet loaded; null when key or certificate cannot be used.
  std::unique_ptr<TolvenApplication::SslSocket> CreateSSLSocket(bool server);
  // Has the relay at the other end of this plain connection lead it on to `host`. The relay is
  // spoken to in a TLS session of its own, at most 1.2, after whose end no record can be on its
  // way, and without a close message; whatever happens, the connection is plain again afterwards.
  // Whose certificate the relay has does not matter: its TLS protects nothing of what follows. 0
  // and the relay's answer in `status`, or -2 when there was no TLS.
  int AskRelay(const char* host, int port, int& status);
  // Ends a connection without a last flush.
  void DropConnection();
  const std::atomic<int>* AbortFlag() const;  // may be null

  std::chrono::microseconds m_timeout{1'000'000};  // poll interval of the tunnel's handshake
  std::uint32_t channel_timeout = 60;
  std::unique_ptr<AbortHandler> abort_handler;
  bool m_isSSL = false;
  bool m_is_allowing_untrust = true;
  ustring m_ssl_hostname;
  std::unique_ptr<TolvenApplication::BufferedIOBase> m_bio;  // null: closed
  std::unique_ptr<TolvenApplication::Socket> m_socket;       // m_bio works on a copy of it

 private:
  static std::unique_ptr<TolvenApplication::SslSocket> CreateSSLClient(bool allow_untrust,
                                                                       const ustring& hostname);
  static std::unique_ptr<TolvenApplication::SslSocket> CreateSSLServer();
  template <class Integer>
  int ReadInteger(Integer& value);
  template <class Integer>
  int WriteInteger(Integer value);

  static std::string m_cert_path;
  static std::string m_key_path;
  static ustring m_ca_path;
};

// Empties OpenSSL's error queue of this thread into the log.
void log_ssl();

}  // namespace tolven
