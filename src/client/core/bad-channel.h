// Handed out where there is no channel: every use fails instead of crashing.
#pragma once

#include "lib/channel.h"

namespace tolven {

class BadChannel : public Channel {
 public:
  static BadChannel& Instance();

  int Open(const char*) override;
  int Open(CH_SOCK_T, bool) override;
  int Open(const char*, int) override;
  int ConvertToSSLChannel(bool) override;
  int Read(char*, std::size_t) override;
  int Read(char*, std::size_t, std::size_t&) override;
  int ReadByte(std::uint8_t&) override;
  int ReadInt16(std::uint16_t&) override;
  int ReadInt32(std::uint32_t&) override;
  int ReadInt64(std::uint64_t&) override;
  int Write(const char*, std::size_t) override;
  int WriteByte(std::uint8_t) override;
  int WriteInt16(std::uint16_t) override;
  int WriteInt32(std::uint32_t) override;
  int WriteInt64(std::uint64_t) override;
  int Sendfile(CH_FILE_T, std::uint64_t, std::uint64_t, WriterProgressReporter*) override;
  int FlushWrite(int) override;
  // These have nothing to do. Many threads may share the object, so nothing is kept.
  void Close() override {}
  void SetTimeout(std::uint32_t) override {}
  void SetFlag(std::atomic<int>*) override {}

 private:
  BadChannel() : Channel(0x14000) {}
};

}  // namespace tolven
