#include "lib/log-format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace tolven {
namespace {

template <class... Args>
std::string Format(const wchar_t* format, const Args&... args) {
  const LogArg list[] = {LogArg(args)..., LogArg()};
  std::string text;
  FormatLogMessage(text, format, std::span<const LogArg>(list, sizeof...(Args)));
  return text;
}

enum Code { kCode = -33 };

TEST(LogFormat, ShowsWhatPrintfShows) {
  EXPECT_EQ(Format(L"[ERROR] app(%d): '%s' %u%%\n", 12, ustring("\xC3\xA4"), 5u),
            "[ERROR] app(12): '\xC3\xA4' 5%\n");
  EXPECT_EQ(Format(L"%5d|%-5d|%05d|%+d|% d|%.3d", 42, 42, -42, 42, 42, 7),
            "   42|42   |-0042|+42| 42|007");
  EXPECT_EQ(Format(L"%llu %lld %zu %lu %I64u", std::numeric_limits<std::uint64_t>::max(),
                   std::numeric_limits<std::int64_t>::min(), std::size_t{1}, 2ul, 3ull),
            "18446744073709551615 -9223372036854775808 1 2 3");
  EXPECT_EQ(Format(L"%x %X %#x %08x %o", -1, 255, 16, 0xABCu, 8), "ffffffff FF 0x10 00000abc 10");
  EXPECT_EQ(Format(L"%.2f %e %g %7.1f|%F", 3.14159, 12345.678, 0.5, -2.25, 1e3),
            "3.14 1.234568e+04 0.5    -2.2|1000.000000");
  EXPECT_EQ(Format(L"%s|%6s|%-6s|%.2s|%ls|%c%c", "a", std::string("b"), L"c", "\xC3\xA4xy", u"d",
                   'e', L'\x4E2D'),
            "a|     b|c     |\xC3\xA4x|d|e\xE4\xB8\xAD");
  EXPECT_EQ(Format(L"%*d|%-*d|%.*s", 4, 1, 4, 2, 1, "xyz"), "   1|2   |x");
  EXPECT_EQ(Format(L"%p", reinterpret_cast<const void*>(0x1F)), "0x1f");
  EXPECT_EQ(Format(L"\x4E2D %ls", L"\u4E2D\U0001F600"),
            "\xE4\xB8\xAD \xE4\xB8\xAD\xF0\x9F\x98\x80");
}

TEST(LogFormat, GoesByTheTypeOfTheArgument) {
  EXPECT_EQ(Format(L"%d %s %f %s %s", "text", 42, 7, 1.5, kCode), "text 42 7 1.5 -33");
  EXPECT_EQ(Format(L"%d %u %d", std::uint32_t{4294967295u}, -1, true), "4294967295 -1 1");
  EXPECT_EQ(Format(L"%d %hhu %c", std::int64_t{1} << 40, std::uint8_t{200}, 65),
            "1099511627776 200 A");
  EXPECT_EQ(Format(L"%s %s", static_cast<const char*>(nullptr), nullptr), "(null) 0x0");
}

TEST(LogFormat, SurvivesWrongFormats) {
  EXPECT_EQ(Format(L"%s and %d", "one"), "one and %d");
  EXPECT_EQ(Format(L"%", 1), "%");
  EXPECT_EQ(Format(L"%-08.3ll", 1), "%-08.3ll");
  EXPECT_EQ(Format(L"%y %n%d", 1), "%y %n1");
  EXPECT_EQ(Format(L"%*d", "text", 1), "text");
  EXPECT_EQ(Format(L"plain", 1, 2), "plain");
  EXPECT_EQ(Format(L"%99999999999d", 1).size(), 4096u);
  EXPECT_EQ(Format(L"%.99999f", 1e308).size(), 309u + 1 + 100);
  EXPECT_EQ(Format(nullptr), "");
}

// Names come from servers and other users: they must neither forge lines nor drive a terminal.
TEST(LogFormat, EscapesControlCharactersOfArgumentsAlone) {
  EXPECT_EQ(Format(L"\t%s\n", "a\nb\r\t\x1b[2J\x7f\xC2\x9B"), "\ta\\nb\\r\\t\\x1b[2J\\x7f\\x9b\n");
  EXPECT_EQ(Format(L"%s %s %c%c", L"\n\x9B", u"\x1b", '\n', '\xFF'), "\\n\\x9b \\x1b \\n\\xff");
  // Overlong, cut off, surrogate, beyond the last plane.
  EXPECT_EQ(Format(L"%s", "\xC0\x8A|\xE4\xB8|\xED\xA0\x80|\xF5\x80\x80\x80"),
            "\\xc0\\x8a|\\xe4\\xb8|\\xed\\xa0\\x80|\\xf5\\x80\\x80\\x80");
  EXPECT_EQ(Format(L"%s", std::u16string(1, char16_t{0xD800})), "\xEF\xBF\xBD");
}

}  // namespace
}  // namespace tolven
