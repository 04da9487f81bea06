#include "lib/log-format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

namespace tolven {

namespace {

constexpr int kWidest = 4096;
constexpr int kDigits = 100;  // more behind the point than any double has to show
constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t c) {
  const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = kReplacement;
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

bool IsControl(char32_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }

// Control characters, and bytes that are no UTF-8, in a form that a terminal or a reader of lines
// does not act upon.
void AppendEscaped(std::string& out, char32_t c) {
  constexpr char kHex[] = "0123456789abcdef";
  switch (c) {
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
      out.append("\\x").append(1, kHex[(c >> 4) & 15]).append(1, kHex[c & 15]);
  }
}

void AppendCharacter(std::string& out, char32_t c) {
  if (IsControl(c)) return AppendEscaped(out, c);
  AppendUtf8(out, c);
}

// The character at the front of `text` and the bytes that it takes; 0 bytes when they are no UTF-8.
std::size_t DecodeUtf8(std::string_view text, char32_t& c) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  const std::size_t size = lead < 0x80   ? 1
                           : lead < 0xC2 ? 0
                           : lead < 0xE0 ? 2
                           : lead < 0xF0 ? 3
                                         : 4;
  if (size < 2) {
    c = lead;
    return size;
  }
  if (lead > 0xF4 || text.size() < size) return 0;
  c = lead & (0x7F >> size);
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    c = (c << 6) | (byte(i) & 0x3F);
  }
  const bool overlong = (size == 3 && c < 0x800) || (size == 4 && c < 0x10000);
  return overlong || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF) ? 0 : size;
}

void AppendNarrow(std::string& out, std::string_view text) {
  while (!text.empty()) {
    char32_t c = 0;
    const std::size_t size = DecodeUtf8(text, c);
    if (size == 0) {
      AppendEscaped(out, static_cast<unsigned char>(text.front()));
    } else {
      AppendCharacter(out, c);
    }
    text.remove_prefix(std::max<std::size_t>(size, 1));
  }
}

// Text of 16 or 32 bits a unit; units of a surrogate pair are joined in either.
template <class Text>
void AppendWide(std::string& out, Text text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    auto c = static_cast<char32_t>(text[i]);
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size()) {
      const auto low = static_cast<char32_t>(text[i + 1]);
      if (low >= 0xDC00 && low < 0xE000) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        ++i;
      }
    }
    AppendCharacter(out, c);
  }
}

std::size_t CountCharacters(std::string_view utf8) {
  return static_cast<std::size_t>(
      std::count_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// The first `count` characters.
std::string_view CutCharacters(std::string_view utf8, std::size_t count) {
  std::size_t end = 0;
  for (; end < utf8.size(); ++end) {
    if ((utf8[end] & 0xC0) != 0x80 && count-- == 0) break;
  }
  return utf8.substr(0, end);
}

struct Directive {
  bool left = false, plus = false, blank = false, alternate = false, zero = false;
  int width = 0;
  int precision = -1;  // none
  char conversion = 0;
};

class Formatter {
 public:
  Formatter(std::string& out, const xchar* format, std::span<const LogArg> args)
      : out_(out), at_(format), args_(args) {}

  void Run() {
    while (*at_ != 0) {
      const xchar* const literal = at_;
      while (*at_ != 0 && *at_ != '%') ++at_;
      AppendLiteral(literal, at_);
      if (*at_ == '%') RunDirective();
    }
  }

 private:
  // Text of the format itself keeps its control characters.
  void AppendLiteral(const xchar* from, const xchar* to) {
    for (; from != to; ++from) {
      auto c = static_cast<char32_t>(*from);
      if (c < 0x80) {
        out_.push_back(static_cast<char>(c));
        continue;
      }
      if (c >= 0xD800 && c < 0xDC00 && from + 1 != to) {
        const auto low = static_cast<char32_t>(from[1]);
        if (low >= 0xDC00 && low < 0xE000) {
          c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
          ++from;
        }
      }
      AppendUtf8(out_, c);
    }
  }

  void RunDirective() {
    const xchar* const begin = at_++;
    if (*at_ == '%') {
      ++at_;
      out_.push_back('%');
      return;
    }
    Directive directive;
    const bool known = Parse(directive);
    if (!known || next_ >= args_.size()) return AppendLiteral(begin, at_);
    AppendArgument(directive, args_[next_++]);
  }

  bool Parse(Directive& directive) {
    for (;; ++at_) {
      switch (*at_) {
        case '-':
          directive.left = true;
          continue;
        case '+':
          directive.plus = true;
          continue;
        case ' ':
          directive.blank = true;
          continue;
        case '#':
          directive.alternate = true;
          continue;
        case '0':
          directive.zero = true;
          continue;
        default:
          break;
      }
      break;
    }
    directive.width = ParseNumber();
    if (directive.width < 0) {
      directive.left = true;
      directive.width = -directive.width;
    }
    if (*at_ == '.') {
      ++at_;
      directive.precision = std::max(ParseNumber(), -1);
    }
    SkipLength();
    constexpr std::string_view kConversions = "diuxXocsSfFeEgGaAp";
    const xchar c = *at_;
    if (c <= 0 || c > 0x7E || kConversions.find(static_cast<char>(c)) == std::string_view::npos) {
      return false;
    }
    directive.conversion = static_cast<char>(c);
    ++at_;
    return true;
  }

  // Digits, or "*" for the next argument; 0 when there is neither.
  int ParseNumber() {
    if (*at_ == '*') {
      ++at_;
      if (next_ >= args_.size() || !args_[next_].is_number()) return 0;
      const auto value = static_cast<std::int64_t>(args_[next_++].number());
      return static_cast<int>(std::clamp<std::int64_t>(value, -kWidest, kWidest));
    }
    int number = 0;
    for (; *at_ >= '0' && *at_ <= '9'; ++at_) {
      number = std::min(kWidest, number * 10 + static_cast<int>(*at_ - '0'));
    }
    return number;
  }

  void SkipLength() {
    if (at_[0] == 'I' && ((at_[1] == '6' && at_[2] == '4') || (at_[1] == '3' && at_[2] == '2'))) {
      at_ += 3;
    }
    constexpr std::string_view kLengths = "hlLqjztw";
    while (*at_ > 0 && *at_ <= 0x7E &&
           kLengths.find(static_cast<char>(*at_)) != std::string_view::npos) {
      ++at_;
    }
  }

  void AppendArgument(const Directive& directive, const LogArg& arg) {
    switch (arg.kind()) {
      case LogArg::Kind::kSigned:
      case LogArg::Kind::kUnsigned:
        return AppendInteger(directive, arg);
      case LogArg::Kind::kChar:
        return directive.conversion == 'c' || directive.conversion == 's' ||
                       directive.conversion == 'S'
                   ? AppendText(directive, arg)
                   : AppendInteger(directive, arg);
      case LogArg::Kind::kDouble:
        return AppendReal(directive, arg.real());
      case LogArg::Kind::kPointer: {
        const auto address = reinterpret_cast<std::uintptr_t>(arg.pointer());
        return AppendDigits(directive, "0x", static_cast<std::uint64_t>(address), 16);
      }
      default:
        return AppendText(directive, arg);
    }
  }

  void AppendText(const Directive& directive, const LogArg& arg) {
    std::string text;
    switch (arg.kind()) {
      case LogArg::Kind::kNarrow:
        AppendNarrow(text, arg.narrow());
        break;
      case LogArg::Kind::kWide:
        AppendWide(text, arg.wide());
        break;
      case LogArg::Kind::kUtf16:
        AppendWide(text, arg.utf16());
        break;
      default:
        AppendCodePoint(text, arg);
        break;
    }
    std::string_view shown = text;
    if (directive.precision >= 0 && arg.kind() != LogArg::Kind::kChar) {
      shown = CutCharacters(shown, static_cast<std::size_t>(directive.precision));
    }
    AppendPadded(directive, "", shown, false);
  }

  static void AppendCodePoint(std::string& text, const LogArg& arg) {
    if (arg.number() >= 0x80 && arg.kind() == LogArg::Kind::kChar && arg.is_byte()) {
      return AppendEscaped(text, static_cast<char32_t>(arg.number()));
    }
    AppendCharacter(text,
                    arg.number() > 0x10FFFF ? kReplacement : static_cast<char32_t>(arg.number()));
  }

  void AppendInteger(const Directive& directive, const LogArg& arg) {
    switch (directive.conversion) {
      case 'c':
        return AppendText(directive, arg);
      case 'x':
      case 'X':
      case 'p': {
        const bool prefix = directive.conversion == 'p' || (directive.alternate && arg.bits() != 0);
        const char* const sign = !prefix ? "" : directive.conversion == 'X' ? "0X" : "0x";
        return AppendDigits(directive, sign, arg.bits(), 16);
      }
      case 'o':
        return AppendDigits(directive, directive.alternate ? "0" : "", arg.bits(), 8);
      default:
        break;
    }
    const auto value = static_cast<std::int64_t>(arg.number());
    if (arg.kind() == LogArg::Kind::kSigned && value < 0) {
      return AppendDigits(directive, "-", std::uint64_t{0} - arg.number(), 10);
    }
    const char* const sign = directive.plus ? "+" : directive.blank ? " " : "";
    AppendDigits(directive, sign, arg.number(), 10);
  }

  void AppendDigits(const Directive& directive, std::string_view sign, std::uint64_t value,
                    int base) {
    char digits[64];
    char* const end = std::to_chars(digits, digits + sizeof digits, value, base).ptr;
    if (directive.conversion == 'X') {
      std::transform(digits, end, digits,
                     [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 32) : c; });
    }
    std::string text;
    const auto count = static_cast<std::size_t>(end - digits);
    // For numbers a precision is the least count of digits.
    const bool decimal_text = directive.conversion == 's' || directive.conversion == 'S';
    if (!decimal_text && directive.precision > static_cast<int>(count)) {
      text.assign(static_cast<std::size_t>(directive.precision) - count, '0');
    }
    text.append(digits, count);
    AppendPadded(directive, sign, text, directive.precision < 0);
  }

  void AppendReal(const Directive& directive, double value) {
    char style = directive.conversion;
    constexpr std::string_view kStyles = "fFeEgGaA";
    if (kStyles.find(style) == std::string_view::npos) style = 'g';
    const bool upper = style < 'a';
    if (upper) style = static_cast<char>(style + 32);
    const auto notation = style == 'f'   ? std::chars_format::fixed
                          : style == 'e' ? std::chars_format::scientific
                          : style == 'a' ? std::chars_format::hex
                                         : std::chars_format::general;
    const int precision = directive.precision < 0 ? 6 : std::min(directive.precision, kDigits);
    char digits[512];  // the longest is 309 digits before the point, and kDigits behind it
    const auto result =
        std::to_chars(digits, digits + sizeof digits, std::fabs(value), notation, precision);
    if (upper) {
      std::transform(digits, result.ptr, digits,
                     [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    }
    const char* const sign = std::signbit(value) ? "-"
                             : directive.plus    ? "+"
                             : directive.blank   ? " "
                                                 : "";
    AppendPadded(directive, sign, {digits, static_cast<std::size_t>(result.ptr - digits)},
                 std::isfinite(value));
  }

  void AppendPadded(const Directive& directive, std::string_view sign, std::string_view text,
                    bool may_zero) {
    const std::size_t length = sign.size() + CountCharacters(text);
    const auto width = static_cast<std::size_t>(directive.width);
    const std::size_t pad = width > length ? width - length : 0;
    const bool zero = directive.zero && may_zero && !directive.left;
    if (!directive.left && !zero) out_.append(pad, ' ');
    out_.append(sign);
    if (zero) out_.append(pad, '0');
    out_.append(text);
    if (directive.left) out_.append(pad, ' ');
  }

  std::string& out_;
  const xchar* at_;
  std::span<const LogArg> args_;
  std::size_t next_ = 0;
};

}  // namespace

void FormatLogMessage(std::string& out, const xchar* format, std::span<const LogArg> args) {
  if (format != nullptr) Formatter(out, format, args).Run();
}

}  // namespace tolven
