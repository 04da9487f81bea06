#include <fmt/format.h>

#include <algorithm>

#include "lib/log.h"

namespace tolven {
namespace {

// One conversion of a format, as in "%-8.3llu".
struct Conversion {
  bool left = false, zero = false, plus = false, alternate = false;
  int width = 0;
  int precision = -1;
  wchar_t letter = 0;
};

constexpr int kMaxWidth = 1024;

void AppendUtf8(char32_t c, std::string& text) {
  const auto byte = [&text](char32_t value) { text += static_cast<char>(value); };
  if (c < 0x80) {
    byte(c);
  } else if (c < 0x800) {
    byte(0xC0 | c >> 6), byte(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    byte(0xE0 | c >> 12), byte(0x80 | (c >> 6 & 0x3F)), byte(0x80 | (c & 0x3F));
  } else if (c < 0x110000) {
    byte(0xF0 | c >> 18), byte(0x80 | (c >> 12 & 0x3F));
    byte(0x80 | (c >> 6 & 0x3F)), byte(0x80 | (c & 0x3F));
  }
}

// Wide text is UTF-32 or UTF-16, by the size of the system's wide character.
std::string NarrowWide(std::wstring_view wide) {
  std::string text;
  for (std::size_t i = 0; i < wide.size(); ++i) {
    auto c = static_cast<char32_t>(wide[i]);
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < wide.size()) {
      c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(wide[++i]) - 0xDC00);
    }
    AppendUtf8(c, text);
  }
  return text;
}

// A text argument must not forge lines or move the reader's cursor.
void AppendEscaped(std::string_view value, std::string& text) {
  for (const char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      text += "\\n";
    } else if (c == '\r') {
      text += "\\r";
    } else if (c == '\t') {
      text += "\\t";
    } else if (byte < 0x20 || byte == 0x7F) {
      fmt::format_to(std::back_inserter(text), "\\x{:02x}", byte);
    } else {
      text += c;
    }
  }
}

// Reads what follows a "%"; `format` is left behind the conversion's letter.
Conversion ParseConversion(const xchar*& format) {
  Conversion conversion;
  for (bool flag = true; flag;) {
    switch (*format) {
      case L'-':
        conversion.left = true;
        break;
      case L'0':
        conversion.zero = true;
        break;
      case L'+':
        conversion.plus = true;
        break;
      case L'#':
        conversion.alternate = true;
        break;
      case L' ':
        break;
      default:
        flag = false;
        continue;
    }
    ++format;
  }
  const auto number = [&format] {
    int value = 0;
    for (; *format >= L'0' && *format <= L'9'; ++format) {
      value = std::min(value * 10 + static_cast<int>(*format - L'0'), kMaxWidth);
    }
    return value;
  };
  conversion.width = number();
  if (*format == L'.') {
    ++format;
    conversion.precision = number();
  }
  while (*format == L'l' || *format == L'h' || *format == L'z' || *format == L'j' ||
         *format == L't' || *format == L'I') {
    ++format;
  }
  conversion.letter = *format;
  if (*format != 0) ++format;
  return conversion;
}

std::string FormatInteger(const Conversion& conversion, bool negative, std::uint64_t magnitude) {
  std::string digits;
  if (conversion.letter == L'x') {
    digits = fmt::format(fmt::runtime(conversion.alternate ? "{:#x}" : "{:x}"), magnitude);
  } else if (conversion.letter == L'X') {
    digits = fmt::format(fmt::runtime(conversion.alternate ? "{:#X}" : "{:X}"), magnitude);
  } else if (conversion.letter == L'o') {
    digits = fmt::format("{:o}", magnitude);
  } else {
    digits = fmt::format("{}", magnitude);
  }
  const std::string sign = negative ? "-" : conversion.plus ? "+" : "";
  const auto width = static_cast<std::size_t>(conversion.width);
  if (conversion.zero && !conversion.left && sign.size() + digits.size() < width) {
    digits.insert(0, width - sign.size() - digits.size(), '0');
  }
  return sign + digits;
}

std::string FormatArgument(const Conversion& conversion, const LogArg& arg) {
  std::string text;
  switch (arg.kind) {
    case LogArg::Kind::kSigned: {
      const bool hexadecimal =
          conversion.letter == L'x' || conversion.letter == L'X' || conversion.letter == L'o';
      const auto value = static_cast<std::uint64_t>(arg.signed_value);
      const bool negative = arg.signed_value < 0 && !hexadecimal;
      return FormatInteger(conversion, negative, negative ? 0 - value : value);
    }
    case LogArg::Kind::kUnsigned:
      return FormatInteger(conversion, false, arg.unsigned_value);
    case LogArg::Kind::kDouble:
      return fmt::format("{:.{}f}", arg.double_value,
                         conversion.precision < 0 ? 6 : conversion.precision);
    case LogArg::Kind::kCharacter: {
      if (conversion.letter == L'd' || conversion.letter == L'u' || conversion.letter == L'x') {
        return FormatInteger(conversion, false, arg.unsigned_value);
      }
      const char c = static_cast<char>(arg.unsigned_value);
      AppendEscaped({&c, 1}, text);
      return text;
    }
    case LogArg::Kind::kText:
      AppendEscaped(conversion.precision < 0
                        ? arg.text
                        : arg.text.substr(0, static_cast<std::size_t>(conversion.precision)),
                    text);
      return text;
    case LogArg::Kind::kWideText:
      AppendEscaped(NarrowWide(arg.wide_text), text);
      return text;
    case LogArg::Kind::kPointer:
      return fmt::format("{}", arg.pointer);
  }
  return text;
}

}  // namespace

void FormatLogMessage(const xchar* format, std::span<const LogArg> args, std::string& text) {
  std::size_t next = 0;
  while (*format != 0) {
    const xchar* const start = format;
    while (*format != 0 && *format != L'%') ++format;
    if (format != start) {
      text += NarrowWide({start, static_cast<std::size_t>(format - start)});
      continue;
    }
    ++format;
    const Conversion conversion = ParseConversion(format);
    if (conversion.letter == L'%') {
      text += '%';
      continue;
    }
    const std::string value =
        next < args.size() ? FormatArgument(conversion, args[next++]) : std::string("(missing)");
    const auto width = static_cast<std::size_t>(conversion.width);
    const std::size_t padding = width > value.size() ? width - value.size() : 0;
    if (!conversion.left) text.append(padding, ' ');
    text += value;
    if (conversion.left) text.append(padding, ' ');
  }
}

}  // namespace tolven
