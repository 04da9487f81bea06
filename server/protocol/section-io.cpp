#include "server/protocol/section-io.h"

#include <vector>

namespace tolven::server {

namespace {

constexpr int kWrongSection = -5;
constexpr std::size_t kMaxText = 8192;

int ReadId(Channel& channel, std::uint8_t id) {
  std::uint8_t found = 0;
  const int result = channel.ReadByte(found);
  if (result < 0) return result;
  return found == id ? 0 : kWrongSection;
}

}  // namespace

int ReadSection(Channel& channel, std::uint8_t id, std::uint32_t& value) {
  const int result = ReadId(channel, id);
  return result < 0 ? result : channel.ReadInt32(value);
}

int ReadSection(Channel& channel, std::uint8_t id, ustring& text) {
  int result = ReadId(channel, id);
  std::uint16_t length = 0;
  if (result == 0) result = channel.ReadInt16(length);
  if (result < 0) return result;
  if (length > kMaxText) return kWrongSection;
  std::string bytes(length, '\0');
  result = channel.Read(bytes.data(), bytes.size());
  if (result == 0) text = bytes.substr(0, bytes.find('\0'));
  return result;
}

int WriteSection(Channel& channel, std::uint8_t id, std::uint8_t value) {
  const int result = channel.WriteByte(id);
  return result < 0 ? result : channel.WriteByte(value);
}

int WriteSection(Channel& channel, std::uint8_t id, std::uint32_t value) {
  const int result = channel.WriteByte(id);
  return result < 0 ? result : channel.WriteInt32(value);
}

int WriteSection(Channel& channel, std::uint8_t id, const std::string& text) {
  const std::string sent = text.substr(0, kMaxText);
  int result = channel.WriteByte(id);
  if (result == 0) result = channel.WriteInt16(static_cast<std::uint16_t>(sent.size()));
  return result < 0 ? result : channel.Write(sent.data(), sent.size());
}

}  // namespace tolven::server
