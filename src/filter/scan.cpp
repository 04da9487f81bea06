#include "filter/scan.h"

#include <charconv>
#include <cstddef>
#include <limits>

namespace tolven::scan {

namespace {

constexpr std::size_t kLongestNumber = 4095;
constexpr std::size_t kLongestString = 4096;

bool IsSpace(char c) { return c == ' ' || c == '\t' || (c >= 0x0B && c <= 0x0D); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsControl(char c) { return static_cast<unsigned char>(c) < 32 || c == 127; }
bool IsNameCharacter(char c) {
  return IsDigit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '_';
}

template <class Predicate>
std::string_view TakeWhile(std::string_view& rest, Predicate belongs) {
  std::size_t end = 0;
  while (end < rest.size() && belongs(rest[end])) ++end;
  const std::string_view taken = rest.substr(0, end);
  rest.remove_prefix(end);
  return taken;
}

int HexDigit(char c) {
  if (IsDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The character of "\x41" or "\101", given from behind the backslash; -1 when it is none, or NUL,
// which no text can hold.
int TakeNumericEscape(std::string_view& rest) {
  const bool hex = rest.front() == 'x';
  if (hex) rest.remove_prefix(1);
  const std::size_t count = hex ? 2 : 3;
  const int base = hex ? 16 : 8;
  if (rest.size() < count || (!hex && rest.front() > '3')) return -1;
  int code = 0;
  for (const char c : rest.substr(0, count)) {
    const int digit = HexDigit(c);
    if (digit < 0 || digit >= base) return -1;
    code = code * base + digit;
  }
  rest.remove_prefix(count);
  return code == 0 ? -1 : code;
}

// One escape, given from behind the backslash; -1 when there is no such.
int TakeEscape(std::string_view& rest) {
  static constexpr std::string_view kLetters = R"(abfnrtv'"\?)";
  static constexpr std::string_view kMeanings = "\a\b\f\n\r\t\v'\"\\?";
  if (rest.empty()) return -1;
  const std::size_t known = kLetters.find(rest.front());
  if (known == std::string_view::npos) return TakeNumericEscape(rest);
  rest.remove_prefix(1);
  return kMeanings[known];
}

}  // namespace

void SkipSpace(std::string_view& rest) { TakeWhile(rest, IsSpace); }

bool AtLineEnd(std::string_view rest) { return rest.empty() || rest.front() == '#'; }

std::string_view TakeName(std::string_view& rest) { return TakeWhile(rest, IsNameCharacter); }

parser_error TakeInteger(std::string_view& rest, std::int64_t& value) {
  if (AtLineEnd(rest)) return parser_error::VALUE_NUMERIC_MISSING_VALUE;
  const std::string_view start = rest;
  const bool negative = rest.front() == '-';
  if (negative || rest.front() == '+') rest.remove_prefix(1);
  std::string_view digits;
  if (!rest.empty() && rest.front() == '0') {
    digits = rest.substr(0, 1);
    rest.remove_prefix(1);
  } else {
    digits = TakeWhile(rest, IsDigit);
  }
  if (digits.empty()) return parser_error::VALUE_NUMERIC_MISSING_INTEGER_PART;
  if (!rest.empty() && rest.front() == '.') {
    rest.remove_prefix(1);
    if (TakeWhile(rest, IsDigit).empty()) {
      return parser_error::VALUE_NUMERIC_MISSING_FRACTIONAL_PART;
    }
  }
  if (start.size() - rest.size() > kLongestNumber) return parser_error::VALUE_TOO_LONG;
  if (!AtLineEnd(rest) && !IsSpace(rest.front())) {
    return parser_error::VALUE_NUMERIC_ILLEGAL_SYNTAX;
  }

  using Limits = std::numeric_limits<std::int64_t>;
  if (std::from_chars(digits.data(), digits.data() + digits.size(), value).ec != std::errc{}) {
    value = negative ? Limits::min() : Limits::max();
  } else if (negative) {
    value = -value;
  }
  return parser_error::NO_ERROR;
}

parser_error TakeString(std::string_view& rest, std::string& value) {
  value.clear();
  if (rest.empty() || rest.front() != '"') return parser_error::VALUE_STRING_MISSING_LEFT_QUOTE;
  rest.remove_prefix(1);
  while (!rest.empty() && rest.front() != '"') {
    int c = static_cast<unsigned char>(rest.front());
    if (IsControl(rest.front())) return parser_error::VALUE_STRING_ILLEGAL_CHARACTER;
    rest.remove_prefix(1);
    if (c == '\\') c = TakeEscape(rest);
    if (c < 0) return parser_error::VALUE_STRING_ILLEGAL_CHARACTER;
    if (value.size() == kLongestString) return parser_error::VALUE_TOO_LONG;
    value.push_back(static_cast<char>(c));
  }
  if (rest.empty()) return parser_error::VALUE_STRING_MISSING_RIGHT_QUOTE;
  rest.remove_prefix(1);
  return value.empty() ? parser_error::VALUE_STRING_EMPTY : parser_error::NO_ERROR;
}

}  // namespace tolven::scan
