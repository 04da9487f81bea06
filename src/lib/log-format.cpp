#include "lib/log-format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "lib/log-text.h"

namespace tolven {

namespace {

constexpr int kWidest = 4096;
constexpr int kDigits = 100;  // more behind the point than any double has to show

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
    AppendWide(out_, std::wstring_view(from, static_cast<std::size_t>(to - from)),
               ControlCharacters::kKept);
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
        AppendWide(text, arg.wide(), ControlCharacters::kEscaped);
        break;
      case LogArg::Kind::kUtf16:
        AppendUtf16(text, arg.utf16());
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

  // An integer or a character. A char beyond ASCII is one byte of something.
  static void AppendCodePoint(std::string& text, const LogArg& arg) {
    if (arg.number() >= 0x80 && arg.kind() == LogArg::Kind::kChar && arg.is_byte()) {
      return AppendEscapedByte(text, static_cast<unsigned char>(arg.number()));
    }
    AppendCharacter(text, static_cast<char32_t>(std::min<std::uint64_t>(arg.number(), 0x110000)));
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
