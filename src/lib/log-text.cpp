#include "lib/log-text.h"

#include <algorithm>

namespace tolven {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsControl(char32_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }
bool IsHighSurrogate(char32_t c) { return c >= 0xD800 && c < 0xDC00; }
bool IsLowSurrogate(char32_t c) { return c >= 0xDC00 && c < 0xE000; }
bool IsCharacter(char32_t c) { return c < 0xD800 || (c >= 0xE000 && c <= 0x10FFFF); }

void AppendUtf8(std::string& out, char32_t c) {
  const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (!IsCharacter(c)) c = kReplacement;
  if (c < 0x80) return put(c);
  if (c < 0x800) {
    put(0xC0 | (c >> 6));
  } else if (c < 0x10000) {
    put(0xE0 | (c >> 12));
    put(0x80 | ((c >> 6) & 0x3F));
  } else {
    put(0xF0 | (c >> 18));
    put(0x80 | ((c >> 12) & 0x3F));
    put(0x80 | ((c >> 6) & 0x3F));
  }
  put(0x80 | (c & 0x3F));
}

// The character at the front of `text` and the bytes that it takes; 0 bytes when they are no UTF-8.
std::size_t DecodeUtf8(std::string_view text, char32_t& c) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  c = byte(0);
  if (c < 0x80) return 1;
  const std::size_t size = c < 0xC2 ? 0 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : c < 0xF5 ? 4 : 0;
  if (size == 0 || text.size() < size) return 0;
  c &= 0x7Fu >> size;
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    c = (c << 6) | (byte(i) & 0x3Fu);
  }
  const bool overlong = (size == 3 && c < 0x800) || (size == 4 && c < 0x10000);
  return overlong || !IsCharacter(c) ? 0 : size;
}

template <class Text>
void AppendUnits(std::string& out, Text text, ControlCharacters control) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    auto c = static_cast<char32_t>(text[i]);
    if (IsHighSurrogate(c) && i + 1 < text.size() &&
        IsLowSurrogate(static_cast<char32_t>(text[i + 1]))) {
      c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00);
    }
    if (control == ControlCharacters::kKept) {
      AppendUtf8(out, c);
    } else {
      AppendCharacter(out, c);
    }
  }
}

}  // namespace

void AppendEscapedByte(std::string& out, unsigned char byte) {
  constexpr char kHex[] = "0123456789abcdef";
  switch (byte) {
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    default:
      out.append("\\x").append(1, kHex[byte >> 4]).append(1, kHex[byte & 15]);
  }
}

void AppendCharacter(std::string& out, char32_t c) {
  if (IsControl(c)) {
    AppendEscapedByte(out, static_cast<unsigned char>(c));
  } else {
    AppendUtf8(out, c);
  }
}

void AppendNarrow(std::string& out, std::string_view text) {
  while (!text.empty()) {
    char32_t c = 0;
    const std::size_t size = DecodeUtf8(text, c);
    if (size == 0) {
      AppendEscapedByte(out, static_cast<unsigned char>(text.front()));
    } else {
      AppendCharacter(out, c);
    }
    text.remove_prefix(std::max<std::size_t>(size, 1));
  }
}

void AppendWide(std::string& out, std::wstring_view text, ControlCharacters control) {
  AppendUnits(out, text, control);
}

void AppendUtf16(std::string& out, std::u16string_view text) {
  AppendUnits(out, text, ControlCharacters::kEscaped);
}

std::size_t CountCharacters(std::string_view utf8) {
  return static_cast<std::size_t>(
      std::count_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string_view CutCharacters(std::string_view utf8, std::size_t count) {
  std::size_t end = 0;
  for (; end < utf8.size(); ++end) {
    if ((utf8[end] & 0xC0) != 0x80 && count-- == 0) break;
  }
  return utf8.substr(0, end);
}

}  // namespace tolven
