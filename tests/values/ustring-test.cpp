// The string type: its two forms, what each change does to them, and the searches and comparisons
// that differ from those of the standard library.
#include "ustring/ustring.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <unordered_set>
#include <utility>

namespace tolven {
namespace {

using namespace std::literals;

std::u16string Wide(const ustring& s) { return s.c_str(); }

TEST(UString, NarrowChangesDropTheTwinAndWideOnesBuildOnIt) {
  ustring s;
  EXPECT_EQ(Wide(s), u"");
  EXPECT_STREQ(s.c_str_utf8(), "");
  s = "abc";
  EXPECT_EQ(Wide(s), u"abc");
  s += "d";
  EXPECT_EQ(Wide(s), u"abcd");
  s += u"\u00e9\U0001F600";
  EXPECT_EQ(s, "abcd\xc3\xa9\xf0\x9f\x98\x80");
  EXPECT_EQ(s.length(), 10u);
  EXPECT_EQ(Wide(s), u"abcd\u00e9\U0001F600");
  s.replace('a', 'x');
  s[1] = 'y';
  EXPECT_EQ(s.substr(0, 4), "xycd");
  EXPECT_EQ(Wide(s).substr(0, 4), u"abcd");  // stale on purpose

  ustring unread("left");
  unread += u"only";
  EXPECT_EQ(unread, "only");
  ustring copy(unread);  // has no twin of its own
  copy += u'!';
  EXPECT_EQ(copy, "!");
  ustring moved(std::move(unread));
  moved += u'!';
  EXPECT_EQ(moved, "only!");
  EXPECT_EQ(ustring("left ") + u"right" + 's' + u'!', "left rights!");

  ustring a("a"), b(u"b");
  swap(a, b);
  EXPECT_EQ(a.append(1, u'c'), "bc");
  EXPECT_EQ(b.append(1, u'c'), "c");
}

TEST(UString, EveryCopyStopsAtNul) {
  const std::string cut("ab\0cd", 5);
  EXPECT_EQ(ustring(cut), "ab");
  EXPECT_EQ(ustring(std::string_view(cut)), "ab");
  EXPECT_EQ(ustring('\0'), "");
  ustring s("x");
  EXPECT_EQ(s.append(cut.data(), 5), "xab");
  EXPECT_EQ(s.append(cut, 1), "xabb");
  EXPECT_EQ(s.append(3, '\0'), "xabb");
  EXPECT_EQ(s.assign(u"pq\0r", 4), "pq");
  EXPECT_EQ(s.append(u"abc", 2), "pqab");
  EXPECT_EQ(s.assign(cut, 3, 2), "cd");
  EXPECT_EQ(s.assign("abc", 2), "ab");
  s.replace('a', '\0');
  EXPECT_TRUE(s.empty());
}

TEST(UString, ItsOwnTextMayBeAppendedAndAssigned) {
  ustring s("0123456789abcdef");
  s += s;
  EXPECT_EQ(s.length(), 32u);
  s.append(s.c_str_utf8() + 10, 6);
  EXPECT_EQ(s, "0123456789abcdef0123456789abcdefabcdef");
  s.assign(s, 32, 3);
  EXPECT_EQ(s, "abc");
  s.append(s.c_str());
  EXPECT_EQ(s, "abcabc");
  s.assign(s.c_str() + 2, 2);
  EXPECT_EQ(s, "ca");
  s = *&s;
  EXPECT_EQ(s, "ca");
}

TEST(UString, TextThatIsNotWellFormedGivesAnEmptyFormAndAWarning) {
  testing::internal::CaptureStderr();
  const ustring bad("a\xff");
  EXPECT_EQ(Wide(bad), u"");
  EXPECT_TRUE(ustring::normalize(bad, ustring::NFC).empty());
  ustring lone(u"a\xd800");
  EXPECT_TRUE(lone.empty());
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log.find("Warning: u_strFromUTF8: error code 10 at line "), 0u);
  EXPECT_NE(log.find("\nWarning: u_strToUTF8: error code 10 at line "), std::string::npos);
  EXPECT_EQ(log.back(), '\n');
  EXPECT_FALSE(ustring::is_valid("\xff"));
  EXPECT_FALSE(ustring::is_valid("\xed\xa0\x80"));
  EXPECT_TRUE(ustring::is_valid(""));
  EXPECT_TRUE(ustring::is_valid("\xf0\x9f\x98\x80 and plain"));
}

TEST(UString, Normalizes) {
  const ustring composed("caf\xc3\xa9"), decomposed("cafe\xcc\x81");
  EXPECT_EQ(composed.normalize(ustring::NFD), decomposed);
  ustring again = decomposed.normalize(ustring::NFC);
  EXPECT_EQ(again, composed);
  again += u"s";  // both forms are there
  EXPECT_EQ(again, "caf\xc3\xa9s");
  EXPECT_EQ(ustring().normalize(ustring::NFC), "");
}

TEST(UString, ComparesBytesAndItsOrderIsStrict) {
  const ustring a("a");
  EXPECT_TRUE(a == "a" && a == "a"s && a == "a"sv);
  EXPECT_FALSE(a <= "a");
  EXPECT_FALSE(a >= "a");
  EXPECT_TRUE(a <= "b" && a < "ab" && ustring("b") >= a && a != "b");
  EXPECT_TRUE(ustring("\x7f") < "\xc3\xa9");
  EXPECT_EQ(ustring::compare("\xc3", "a", false), 0xc3 - 'a');
  EXPECT_EQ(ustring("ab").compare("a"), 'b');
  EXPECT_EQ(ustring("a").compare("ab"), -'b');
  EXPECT_EQ(ustring::compare("ABC[", "abc[", true), 0);
  EXPECT_EQ(ustring::compare("ABC", "abcd", true), -'d');
  EXPECT_NE(ustring::compare("\xc3\x89", "\xc3\xa9", true), 0);
  EXPECT_EQ(ustring("abx").compare("aby", 2), 0);
  EXPECT_EQ(ustring("x").compare("y", 0), 0);
  EXPECT_LT(ustring("ab").compare("abc", 9), 0);
  const std::unordered_set<ustring, UStringHash, UStringEqual> names{"x"};
  EXPECT_TRUE(names.contains("x"sv));
}

TEST(UString, SearchesStayInsideTheText) {
  const ustring s("/a/b/");
  EXPECT_EQ(s.find("/", 1), 2u);
  EXPECT_EQ(s.find('/', 5), ustring::npos);
  EXPECT_EQ(s.find("", 5), ustring::npos);
  EXPECT_EQ(s.rfind('/'), 4u);
  EXPECT_EQ(s.rfind("/a"s, 99), 0u);
  EXPECT_EQ(s.find_first_of(ustring("ba")), 1u);
  EXPECT_EQ(s.find_first_not_of("/a"), 3u);
  EXPECT_EQ(s.find_last_of('/', 3), 2u);
  EXPECT_EQ(s.find_last_not_of("/b"), 1u);
  EXPECT_EQ(ustring().rfind(""), ustring::npos);
  EXPECT_EQ(ustring().find_last_not_of("x"), ustring::npos);
  EXPECT_EQ(s.substr(5, 5), "");
  EXPECT_EQ(s.substr(3, 99), "b/");
  try {
    s.substr(6, 1);
    ADD_FAILURE();
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "substr");
  }
}

TEST(UString, TrimsAndStreams) {
  ustring s("  a b\t ");
  s.c_str();
  EXPECT_EQ(s.trim(" \t"), "a b");
  EXPECT_EQ(Wide(s), u"a b");
  EXPECT_EQ(ustring("xxx").ltrim("x"), "");
  EXPECT_EQ(ustring("xxx").rtrim("x"), "");
  std::stringstream stream;
  stream << s;
  stream >> s;
  EXPECT_EQ(s, "a");
}

}  // namespace
}  // namespace tolven
