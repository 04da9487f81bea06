#include "lib/proto-section.h"

#include <array>
#include <type_traits>

#include "lib/proto-log.h"
#include "lib/utility.h"

namespace tolven {

namespace {

using Attr = SYNC_SECTION_ATTR_tag;

constexpr Attr Fixed(std::uint8_t id, std::uint8_t width, const char* name) {
  return {id, false, 1, width, name};
}
constexpr Attr Text(std::uint8_t id, const char* name) { return {id, true, 3, 0, name}; }

// By id, from 1 on.
constexpr std::array<Attr, 53> kSections = {
    Fixed(1, 1, "SPROTO_ID_RES"),
    Fixed(2, 1, "SPROTO_ID_TYPE"),
    Text(3, "SPROTO_ID_USER"),
    Text(4, "SPROTO_ID_PASSWD"),
    Text(5, "SPROTO_ID_CLIENT"),
    Text(6, "SPROTO_ID_SESSION"),
    Text(7, "SPROTO_ID_PATH"),
    Fixed(8, 1, "SPROTO_ID_NOTIFY"),
    Fixed(9, 8, "SPROTO_ID_SID"),
    Text(10, "SPROTO_ID_PREFIX"),
    Fixed(11, 8, "SPROTO_ID_EVT_COUNT"),
    Fixed(12, 4, "SPROTO_ID_SEQID"),
    Fixed(13, 8, "SPROTO_ID_EVTID"),
    Fixed(14, 1, "SPROTO_ID_FILETYPE"),
    Fixed(15, 1, "SPROTO_ID_FILESTATUS"),
    Text(16, "SPROTO_ID_FILEHASH"),
    Fixed(17, 4, "SPROTO_ID_FILETIME"),
    Fixed(18, 8, "SPROTO_ID_FILESIZE"),
    Text(19, "SPROTO_ID_FILEUPDATER"),
    Fixed(20, 1, "SPROTO_ID_FILEOP"),
    Fixed(21, 8, "SPROTO_ID_DELTALEN"),
    Text(22, "SPROTO_ID_DELTADATA"),
    Fixed(23, 4, "SPROTO_ID_DELTACOUNT"),
    Fixed(24, 4, "SPROTO_ID_DELTAID"),
    Fixed(25, 1, "SPROTO_ID_DELTATYPE"),
    Fixed(26, 1, "SPROTO_ID_USRENABLE"),
    Text(27, "SPROTO_ID_SERIAL_NUMBER"),
    Fixed(28, 1, "SPROTO_ID_PROTO_VERSION"),
    Text(29, "SPROTO_ID_SERVER_ID"),
    Fixed(30, 4, "SPROTO_ID_ALIVE"),
    Fixed(31, 4, "SPROTO_ID_DATA_BLOCK"),
    Fixed(32, 4, "SPROTO_ID_SYNC_BLOCK"),
    Text(33, "SPROTO_ID_MACHASH"),
    Fixed(34, 8, "SPROTO_ID_MACSIZE"),
    Fixed(35, 1, "SPROTO_ID_AUTH_TYPE"),
    Fixed(36, 8, "SPROTO_ID_VIEW_ID"),
    Text(37, "SPROTO_ID_VIEW_NAME"),
    Fixed(38, 4, "SPROTO_ID_VIEW_COUNT"),
    Fixed(39, 4, "SPROTO_ID_META_BLOCK"),
    Text(40, "SPROTO_ID_FILTER_VERSION"),
    Text(41, "SPROTO_ID_PROTO_VERSION_2"),
    Fixed(42, 4, "SPROTO_ID_KEEP_ALIVE_OPTION"),
    Fixed(43, 4, "SPROTO_ID_KEEP_ALIVE_CONTROL"),
    Fixed(44, 4, "SPROTO_ID_ACK_OPTION"),
    Fixed(45, 4, "SPROTO_ID_SSL_OPTION"),
    Fixed(46, 4, "SPROTO_ID_SSL_RESPONSE_OPTION"),
    Fixed(47, 2, "SPROTO_ID_PKG_MAJOR_VERSION"),
    Fixed(48, 2, "SPROTO_ID_PKG_MINOR_VERSION"),
    Fixed(49, 4, "SPROTO_ID_PKG_BUILDNUM"),
    Fixed(50, 4, "SPROTO_ID_FOLDER_COUNT"),
    Text(51, "SPROTO_ID_JOB_TOKEN"),
    Fixed(52, 8, "SPROTO_ID_FILE_OFFSET"),
    Text(53, "SPROTO_ID_PATCH_TOKEN"),
};

constexpr int kBadArgument = ErrorCodes::ERR_INVAL;
constexpr int kMalformed = ErrorCodes::ERR_PROTO;

// A text up to its first NUL, as every reader takes it.
std::string UpToNul(const char* data, std::size_t size) {
  const std::string_view text(data, size);
  return std::string(text.substr(0, text.find('\0')));
}

std::string ToBytes(const ustring& text) { return text.str(); }
std::string ToBytes(const std::u16string& text) {
  std::string bytes;
  return NativeStrToUTF8(text, bytes) == 0 ? bytes : std::string();
}
bool FromBytes(const std::string& bytes, std::string& text) {
  text = bytes;
  return true;
}
bool FromBytes(const std::string& bytes, ustring& text) {
  text = bytes;
  return ustring::is_valid(text);
}
bool FromBytes(const std::string& bytes, std::u16string& text) {
  return UTF8ToNativeStr(bytes, text) == 0;
}

int WriteBytes(Channel& ch, const std::string& bytes) {
  if (bytes.size() > kLongestProtoString) return PROTO_COMMON_FAIL("WriteString", kBadArgument);
  return ProtoWriteVarData(ch, bytes.data(), static_cast<int>(bytes.size()));
}

template <class Text>
int ReadText(Channel& ch, Text& text) {
  char buffer[kLongestProtoString];
  const int size = ProtoReadVarData(ch, buffer, sizeof buffer);
  if (size < 0) return size;
  if (!FromBytes(UpToNul(buffer, static_cast<std::size_t>(size)), text)) {
    return PROTO_COMMON_FAIL("ReadString", kMalformed);
  }
  return size;
}

int WriteSecret(Channel& ch, const std::string& text) {
  ustring encoded;
  SyncPassEnc(ustring(text), encoded);
  return WriteBytes(ch, encoded.str());
}

template <class Text>
int ReadSecret(Channel& ch, Text& text) {
  ustring encoded, decoded;
  const int size = ReadText(ch, encoded);
  if (size < 0) return size;
  SyncPassDec(encoded, decoded);
  return FromBytes(decoded.str(), text) ? size : PROTO_COMMON_FAIL("ReadDecString", kMalformed);
}

int WriteNumber(Channel& ch, std::uint8_t value) { return ch.WriteByte(value); }
int WriteNumber(Channel& ch, std::uint16_t value) { return ch.WriteInt16(value); }
int WriteNumber(Channel& ch, std::uint32_t value) { return ch.WriteInt32(value); }
int WriteNumber(Channel& ch, std::uint64_t value) { return ch.WriteInt64(value); }
int ReadNumber(Channel& ch, std::uint8_t& value) { return ch.ReadByte(value); }
int ReadNumber(Channel& ch, std::uint16_t& value) { return ch.ReadInt16(value); }
int ReadNumber(Channel& ch, std::uint32_t& value) { return ch.ReadInt32(value); }
int ReadNumber(Channel& ch, std::uint64_t& value) { return ch.ReadInt64(value); }

// Whether a section has values of that width; 0 stands for texts.
bool HasWidth(int sec, std::size_t width) {
  const Attr* const attr = ProtoGetSecAttr(sec);
  return attr != nullptr && attr->hasLen == (width == 0) && attr->len == width;
}

int WriteHead(Channel& ch, int sec, std::size_t width) {
  if (!HasWidth(sec, width)) return PROTO_COMMON_FAIL("WriteSection", kMalformed);
  const int code = ch.WriteByte(static_cast<std::uint8_t>(sec));
  return code < 0 ? PROTO_COMMON_FAIL("WriteSection", code) : 0;
}

int ReadHead(Channel& ch, int sec, std::size_t width) {
  if (!HasWidth(sec, width)) return PROTO_COMMON_FAIL("ReadSection", kMalformed);
  std::uint8_t id = 0;
  const int code = ch.ReadByte(id);
  if (code < 0) return PROTO_COMMON_FAIL("ReadSection", code);
  return id == sec ? 0 : PROTO_COMMON_FAIL("ReadSection", kMalformed);
}

template <class Value>
int WriteFixed(Channel& ch, int sec, Value value) {
  if (const int code = WriteHead(ch, sec, sizeof value); code < 0) return code;
  const int code = WriteNumber(ch, value);
  return code < 0 ? PROTO_COMMON_FAIL("WriteSection", code) : 0;
}

template <class Value>
int ReadFixed(Channel& ch, int sec, Value& value) {
  if (const int code = ReadHead(ch, sec, sizeof value); code < 0) return code;
  const int code = ReadNumber(ch, value);
  return code < 0 ? PROTO_COMMON_FAIL("ReadSection", code) : 1 + static_cast<int>(sizeof value);
}

// The size of a text section, from that of its text.
int WithHead(int size) { return size < 0 ? size : 3 + size; }

}  // namespace

const SYNC_SECTION_ATTR_tag* ProtoGetSecAttr(int sec) {
  if (sec < 1 || static_cast<std::size_t>(sec) > kSections.size()) return nullptr;
  return &kSections[static_cast<std::size_t>(sec - 1)];
}

int ProtoWriteVarData(Channel& ch, const char* data, int len) {
  if (data == nullptr || len < 0 || len > UINT16_MAX) {
    return PROTO_COMMON_FAIL("WriteVarData", kBadArgument);
  }
  int code = ch.WriteInt16(static_cast<std::uint16_t>(len));
  if (code >= 0 && len > 0) code = ch.Write(data, static_cast<std::size_t>(len));
  return code < 0 ? PROTO_COMMON_FAIL("WriteVarData", code) : 0;
}

int ProtoReadVarData(Channel& ch, char* buf, std::size_t max) {
  if (buf == nullptr || max == 0) return PROTO_COMMON_FAIL("ReadVarData", kBadArgument);
  std::uint16_t size = 0;
  int code = ch.ReadInt16(size);
  if (code < 0) return PROTO_COMMON_FAIL("ReadVarData", code);
  if (size > max) return PROTO_COMMON_FAIL("ReadVarData", kMalformed);
  if (size > 0) code = ch.Read(buf, size);
  return code < 0 ? PROTO_COMMON_FAIL("ReadVarData", code) : size;
}

int ProtoWriteString(Channel& ch, const std::string& text) { return WriteBytes(ch, text); }
int ProtoWriteString(Channel& ch, const ustring& text) { return WriteBytes(ch, ToBytes(text)); }
int ProtoWriteString(Channel& ch, const std::u16string& text) {
  return WriteBytes(ch, ToBytes(text));
}
int ProtoReadString(Channel& ch, std::string& text) { return ReadText(ch, text); }
int ProtoReadString(Channel& ch, ustring& text) { return ReadText(ch, text); }
int ProtoReadString(Channel& ch, std::u16string& text) { return ReadText(ch, text); }

int ProtoWriteEncString(Channel& ch, const std::string& text) { return WriteSecret(ch, text); }
int ProtoWriteEncString(Channel& ch, const ustring& text) { return WriteSecret(ch, ToBytes(text)); }
int ProtoWriteEncString(Channel& ch, const std::u16string& text) {
  return WriteSecret(ch, ToBytes(text));
}
int ProtoReadDecString(Channel& ch, std::string& text) { return ReadSecret(ch, text); }
int ProtoReadDecString(Channel& ch, ustring& text) { return ReadSecret(ch, text); }
int ProtoReadDecString(Channel& ch, std::u16string& text) { return ReadSecret(ch, text); }

int ProtoWriteSection(Channel& ch, int sec, std::uint8_t value) {
  return WriteFixed(ch, sec, value);
}
int ProtoWriteSection(Channel& ch, int sec, std::uint16_t value) {
  return WriteFixed(ch, sec, value);
}
int ProtoWriteSection(Channel& ch, int sec, std::uint32_t value) {
  return WriteFixed(ch, sec, value);
}
int ProtoWriteSection(Channel& ch, int sec, std::uint64_t value) {
  return WriteFixed(ch, sec, value);
}
int ProtoReadSection(Channel& ch, int sec, std::uint8_t& value) {
  return ReadFixed(ch, sec, value);
}
int ProtoReadSection(Channel& ch, int sec, std::uint16_t& value) {
  return ReadFixed(ch, sec, value);
}
int ProtoReadSection(Channel& ch, int sec, std::uint32_t& value) {
  return ReadFixed(ch, sec, value);
}
int ProtoReadSection(Channel& ch, int sec, std::uint64_t& value) {
  return ReadFixed(ch, sec, value);
}

int ProtoWriteSection(Channel& ch, int sec, const ustring& value) {
  if (const int code = WriteHead(ch, sec, 0); code < 0) return code;
  return ProtoWriteString(ch, value);
}
int ProtoWriteSection(Channel& ch, int sec, const char* data, std::size_t size) {
  if (size > UINT16_MAX) return PROTO_COMMON_FAIL("WriteSection", kBadArgument);
  if (const int code = WriteHead(ch, sec, 0); code < 0) return code;
  return ProtoWriteVarData(ch, data, static_cast<int>(size));
}
int ProtoWriteEncSection(Channel& ch, int sec, const ustring& value) {
  if (const int code = WriteHead(ch, sec, 0); code < 0) return code;
  return ProtoWriteEncString(ch, value);
}
int ProtoReadSection(Channel& ch, int sec, ustring& value) {
  const int code = ReadHead(ch, sec, 0);
  return code < 0 ? code : WithHead(ProtoReadString(ch, value));
}
int ProtoReadSection(Channel& ch, int sec, char* buf, std::size_t max) {
  const int code = ReadHead(ch, sec, 0);
  return code < 0 ? code : WithHead(ProtoReadVarData(ch, buf, max));
}
int ProtoReadDecSection(Channel& ch, int sec, ustring& value) {
  const int code = ReadHead(ch, sec, 0);
  return code < 0 ? code : WithHead(ProtoReadDecString(ch, value));
}

}  // namespace tolven
