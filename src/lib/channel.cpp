#include "lib/channel.h"

#include <algorithm>
#include <array>

#include "lib/abort-handler.h"
#include "lib/error-table.h"
#include "lib/log.h"
#include "libzentcat/lib/bio/buffered-io.h"
#include "libzentcat/lib/bio/ssl-socket.h"
#include "libzentcat/lib/io/file.h"
#include "libzentcat/lib/io/socket.h"
#include "libzentcat/lib/utils/net.h"

namespace tolven {

namespace {

using TolvenApplication::BufferedIO;
using TolvenApplication::File;
using TolvenApplication::Socket;
namespace Net = TolvenApplication::Net;

constexpr const char* kCategory = "channel_debug";

enum : int { kFailed = -1, kIoFailed = -2, kOptionFailed = -3, kNotUsable = -4 };

constexpr int kLingerSeconds = 1;

ustring Reason(const Socket& socket) { return ustring(platform::StatusText(socket.error())); }

template <class Integer>
Integer Reversed(Integer value) {
  Integer result = 0;
  for (std::size_t i = 0; i < sizeof value; ++i) {
    result = static_cast<Integer>(result << 8 | (value & 0xFF));
    value = static_cast<Integer>(value >> 8);
  }
  return result;
}

}  // namespace

Channel::Channel(std::size_t) : abort_handler(std::make_unique<AbortHandler>()) {}

Channel::~Channel() { Channel::Close(); }

int Channel::Open(const char* host, int port) {
  if (host == nullptr || port < 0) return 0;
  const CH_SOCK_T fd = CreateSocketAndConnectWithTimeout(host, port);
  if (fd == platform::kInvalidSocket) return kIoFailed;
  DropConnection();
  m_socket = std::make_unique<Socket>(fd);
  if (m_socket->setLinger(kLingerSeconds) < 0) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] channel(%d): Open: SetLinger to socket [%d] failed, %s\n", __LINE__,
                   fd, Reason(*m_socket));
    DropConnection();
    return kOptionFailed;
  }
  const int result = CreateBufferIO();
  if (result < 0) DropConnection();
  return result;
}

Channel::CH_SOCK_T Channel::CreateSocketAndConnectWithTimeout(const char* host, int port) {
  Socket socket;
  const auto seconds = static_cast<int>(channel_timeout);
  int result = kFailed;
  if (Net::IsIPv4(host)) {
    result = socket.connectIPv4(host, port, seconds, abort_handler->flag);
  } else if (Net::IsIPv6(host)) {
    result = socket.connectIPv6(host, port, seconds, abort_handler->flag);
  }
  return result < 0 ? platform::kInvalidSocket : socket.fd();
}

int Channel::Open(CH_SOCK_T fd, bool configure) {
  if (m_socket != nullptr && m_socket->isValid()) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] channel(%d): Open: Channel already opened.",
                   __LINE__);
    return kNotUsable;
  }
  Socket socket(fd);
  if (configure && socket.setLinger(kLingerSeconds) < 0) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] channel(%d): Open: SetLinger to socket [%d] failed, %s\n", __LINE__,
                   fd, Reason(socket));
    return kOptionFailed;
  }
  if (configure && socket.setBlocking(false) < 0) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] channel(%d): Open: SetNonBlock to socket [%d] failed, %s\n",
                   __LINE__, fd, Reason(socket));
    return kOptionFailed;
  }
  if (!socket.isValid()) return kNotUsable;
  m_bio.reset();
  m_isSSL = false;
  m_socket = std::make_unique<Socket>(fd);
  const int result = CreateBufferIO();
  if (result < 0) {
    m_bio.reset();
    m_socket.reset();
    return result;
  }
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] channel(%d): Channel: opening socket %d\n",
                 __LINE__, fd);
  return 0;
}

int Channel::CreateBufferIO() {
  // Messages are flushed whole, so waiting for more to send only delays their ends.
  (void)m_socket->setNoDelay();
  if (m_bio == nullptr) m_bio = std::make_unique<BufferedIO>();
  m_bio->unload();
  const int result = m_bio->load(*m_socket);
  m_bio->setController(abort_handler.get());
  m_bio->setTimeout(channel_timeout);
  return result < 0 ? kIoFailed : 0;
}

void Channel::DropConnection() {
  m_bio.reset();
  m_isSSL = false;
  if (m_socket == nullptr) return;
  m_socket->shutdown();
  m_socket->close();
  m_socket.reset();
}

void Channel::Close() {
  if (m_bio != nullptr) {
    const int result = m_bio->flush();
    if (result < 0) {
      Logger::LogMsg(Logger::L_WARNING, kCategory, L"[WARNING] channel(%d): FlushWrite: %s\n",
                     __LINE__, ErrorText(result));
    }
    m_bio->unload();
  }
  DropConnection();
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] channel(%d): Channel has been closed.\n",
                 __LINE__);
}

void Channel::SetTimeout(std::uint32_t seconds) {
  channel_timeout = seconds;
  if (m_bio != nullptr) m_bio->setTimeout(seconds);
}

void Channel::SetFlag(std::atomic<int>* flag) { abort_handler->flag = flag; }

const std::atomic<int>* Channel::AbortFlag() const { return abort_handler->flag; }

int Channel::Read(char* data, std::size_t size) {
  std::size_t got = 0;
  return Read(data, size, got);
}

int Channel::Read(char* data, std::size_t size, std::size_t& got) {
  if (size == 0) {
    got = 0;
    return 0;
  }
  if (m_bio == nullptr) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] channel(%d): Read failed: channel has been closed.\n", __LINE__);
    return kIoFailed;
  }
  if (!m_bio->isGoodToRead()) return kIoFailed;
  if (m_bio->read(data, size) != static_cast<std::int64_t>(size)) return kIoFailed;
  got = size;
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] channel(%d): Read %d bytes \n", __LINE__,
                 size);
  return 0;
}

int Channel::Write(const char* data, std::size_t size) {
  if (m_bio == nullptr) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] channel(%d): Write failed: channel has been closed.\n", __LINE__);
    return kIoFailed;
  }
  if (m_bio->write(data, size) != static_cast<std::int64_t>(size)) return kIoFailed;
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] channel(%d): Write %d bytes\n", __LINE__,
                 size);
  return 0;
}

int Channel::Sendfile(CH_FILE_T file, std::uint64_t offset, std::uint64_t length,
                      WriterProgressReporter* reporter) {
  if (m_bio == nullptr) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] channel(%d): Write failed: channel has been closed.\n", __LINE__);
    return kIoFailed;
  }
  abort_handler->reporter = reporter;
  File source(file);
  const std::int64_t sent = m_bio->sendfile(source, offset, length);
  abort_handler->reporter = nullptr;
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] channel(%d): Write %lld bytes.\n", __LINE__,
                 sent);
  return sent < 0 || static_cast<std::uint64_t>(sent) != length ? kIoFailed : 0;
}

int Channel::FlushWrite(int mode) {
  if (mode != 0) return kFailed;
  return m_bio == nullptr ? kIoFailed : m_bio->flush();
}

int Channel::GetPeerInfo(std::string&, int&) { return kOptionFailed; }

template <class Integer>
int Channel::ReadInteger(Integer& value) {
  std::array<char, sizeof(Integer)> bytes;
  const int result = Read(bytes.data(), bytes.size());
  if (result < 0) return result;
  Integer read = 0;
  for (const char byte : bytes) {
    read = static_cast<Integer>(static_cast<std::uint64_t>(read) << 8 |
                                static_cast<unsigned char>(byte));
  }
  value = read;
  return 0;
}

template <class Integer>
int Channel::WriteInteger(Integer value) {
  std::array<char, sizeof(Integer)> bytes;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    bytes[i] = static_cast<char>(value & 0xFF);
    value = static_cast<Integer>(static_cast<std::uint64_t>(value) >> 8);
  }
  return Write(bytes.data(), bytes.size());
}

int Channel::ReadByte(std::uint8_t& value) { return ReadInteger(value); }
int Channel::ReadInt16(std::uint16_t& value) { return ReadInteger(value); }
int Channel::ReadInt32(std::uint32_t& value) { return ReadInteger(value); }
int Channel::ReadInt64(std::uint64_t& value) { return ReadInteger(value); }
int Channel::WriteByte(std::uint8_t value) { return WriteInteger(value); }
int Channel::WriteInt16(std::uint16_t value) { return WriteInteger(value); }
int Channel::WriteInt32(std::uint32_t value) { return WriteInteger(value); }
int Channel::WriteInt64(std::uint64_t value) { return WriteInteger(value); }

std::uint64_t Channel::Convert(std::uint64_t value) { return Reversed(value); }
std::uint32_t Channel::Convert(std::uint32_t value) { return Reversed(value); }
std::uint16_t Channel::Convert(std::uint16_t value) { return Reversed(value); }

}  // namespace tolven
