#include "client/core/bad-channel.h"

#include "lib/error-table.h"
#include "lib/log.h"

namespace tolven {

namespace {

int Refuse() {
  Logger::LogMsg(Logger::L_CRIT, "connection_debug",
                 L"[CRIT] connection(%d): bad function in use\n", __LINE__);
  return ErrorCodes::ERR_IO;
}

}  // namespace

BadChannel& BadChannel::Instance() {
  static BadChannel instance;
  return instance;
}

int BadChannel::Open(const char*) { return Refuse(); }
int BadChannel::Open(CH_SOCK_T, bool) { return Refuse(); }
int BadChannel::Open(const char*, int) { return Refuse(); }
int BadChannel::ConvertToSSLChannel(bool) { return Refuse(); }
int BadChannel::Read(char*, std::size_t) { return Refuse(); }
int BadChannel::Read(char*, std::size_t, std::size_t&) { return Refuse(); }
int BadChannel::ReadByte(std::uint8_t&) { return Refuse(); }
int BadChannel::ReadInt16(std::uint16_t&) { return Refuse(); }
int BadChannel::ReadInt32(std::uint32_t&) { return Refuse(); }
int BadChannel::ReadInt64(std::uint64_t&) { return Refuse(); }
int BadChannel::Write(const char*, std::size_t) { return Refuse(); }
int BadChannel::WriteByte(std::uint8_t) { return Refuse(); }
int BadChannel::WriteInt16(std::uint16_t) { return Refuse(); }
int BadChannel::WriteInt32(std::uint32_t) { return Refuse(); }
int BadChannel::WriteInt64(std::uint64_t) { return Refuse(); }
int BadChannel::Sendfile(CH_FILE_T, std::uint64_t, std::uint64_t, WriterProgressReporter*) {
  return Refuse();
}
int BadChannel::FlushWrite(int) { return Refuse(); }

}  // namespace tolven
