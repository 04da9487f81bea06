// The section form of the older commands: an id byte, then a big-endian value of fixed width, or a
// length of 16 bits and that many bytes. A text of this form has at most 8,192 bytes.
//
// A channel is used by one thread; nothing here keeps state. Results are the channel's negative
// code, -4 for bad arguments, -5 for a malformed reply, else as told. Failures are logged as
// "proto_common_debug".
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "lib/channel.h"
#include "lib/proto-constants.h"
#include "ustring/ustring.h"

namespace tolven {

inline constexpr std::size_t kLongestProtoString = 8192;

struct SYNC_SECTION_ATTR_tag {
  std::uint8_t id;
  bool hasLen;           // a text
  std::uint8_t headLen;  // bytes in front of the value: 1, or 3 with a length
  std::uint8_t len;      // of the value, 0 for a text
  const char* name;
};
// Null for an id that is none.
const SYNC_SECTION_ATTR_tag* ProtoGetSecAttr(int sec);

// The 16-bit length and the bytes. Reading gives their count.
int ProtoWriteVarData(Channel& ch, const char* data, int len);
int ProtoReadVarData(Channel& ch, char* buf, std::size_t max);

// A text up to its first NUL. Writing gives 0, reading the count of bytes on the wire.
int ProtoWriteString(Channel& ch, const std::string& text);
int ProtoWriteString(Channel& ch, const ustring& text);
int ProtoWriteString(Channel& ch, const std::u16string& text);
int ProtoReadString(Channel& ch, std::string& text);
int ProtoReadString(Channel& ch, ustring& text);
int ProtoReadString(Channel& ch, std::u16string& text);
// The same for a secret, encoded against plain reading.
int ProtoWriteEncString(Channel& ch, const std::string& text);
int ProtoWriteEncString(Channel& ch, const ustring& text);
int ProtoWriteEncString(Channel& ch, const std::u16string& text);
int ProtoReadDecString(Channel& ch, std::string& text);
int ProtoReadDecString(Channel& ch, ustring& text);
int ProtoReadDecString(Channel& ch, std::u16string& text);

// One section, whose width must be that of the argument. Writing gives 0, reading the bytes that
// the section took. Another id than the one expected is -5.
int ProtoWriteSection(Channel& ch, int sec, std::uint8_t value);
int ProtoWriteSection(Channel& ch, int sec, std::uint16_t value);
int ProtoWriteSection(Channel& ch, int sec, std::uint32_t value);
int ProtoWriteSection(Channel& ch, int sec, std::uint64_t value);
int ProtoWriteSection(Channel& ch, int sec, const ustring& value);
int ProtoWriteSection(Channel& ch, int sec, const char* data, std::size_t size);
int ProtoWriteEncSection(Channel& ch, int sec, const ustring& value);
int ProtoReadSection(Channel& ch, int sec, std::uint8_t& value);
int ProtoReadSection(Channel& ch, int sec, std::uint16_t& value);
int ProtoReadSection(Channel& ch, int sec, std::uint32_t& value);
int ProtoReadSection(Channel& ch, int sec, std::uint64_t& value);
int ProtoReadSection(Channel& ch, int sec, ustring& value);
int ProtoReadSection(Channel& ch, int sec, char* buf, std::size_t max);
int ProtoReadDecSection(Channel& ch, int sec, ustring& value);

}  // namespace tolven
