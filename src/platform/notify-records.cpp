#include "platform/notify-records.h"

#include <string>

namespace tolven::platform {

namespace {

constexpr std::size_t kHeader = 12;
constexpr char32_t kReplacement = 0xFFFD;

std::uint32_t Number(const unsigned char* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

void AppendUtf8(std::string& text, char32_t c) {
  const auto tail = [&](int shift) { text += static_cast<char>(0x80 | (c >> shift & 0x3F)); };
  if (c < 0x80) {
    text += static_cast<char>(c);
  } else if (c < 0x800) {
    text += static_cast<char>(0xC0 | c >> 6);
    tail(0);
  } else if (c < 0x10000) {
    text += static_cast<char>(0xE0 | c >> 12);
    tail(6);
    tail(0);
  } else {
    text += static_cast<char>(0xF0 | c >> 18);
    tail(12);
    tail(6);
    tail(0);
  }
}

// False for a name with a NUL, which no file has.
bool DecodeName(const unsigned char* bytes, std::size_t size, std::string& name) {
  const auto unit = [&](std::size_t i) {
    return static_cast<char32_t>(bytes[i] | bytes[i + 1] << 8);
  };
  for (std::size_t i = 0; i < size; i += 2) {
    char32_t c = unit(i);
    if (c == 0) return false;
    if (c >= 0xD800 && c < 0xE000) {
      const char32_t low = c < 0xDC00 && i + 2 < size ? unit(i + 2) : 0;
      if (low >= 0xDC00 && low < 0xE000) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        i += 2;
      } else {
        c = kReplacement;
      }
    }
    AppendUtf8(name, c);
  }
  return true;
}

}  // namespace

bool DecodeNotifyRecords(const void* data, std::size_t size, std::vector<WatchRecord>& records) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (size > 0) {
    if (size < kHeader) return false;
    const std::size_t next = Number(bytes);
    const std::size_t length = Number(bytes + 8);
    if (length % 2 != 0 || length > size - kHeader) return false;
    std::string name;
    if (!DecodeName(bytes + kHeader, length, name)) return false;
    records.push_back({Number(bytes + 4), name});
    if (next == 0) return true;
    // The next record lies behind this one and within the buffer.
    if (next < kHeader + length || next >= size) return false;
    bytes += next;
    size -= next;
  }
  return true;
}

}  // namespace tolven::platform
