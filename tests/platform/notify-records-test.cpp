// Windows' change records, on every system.
#include "platform/notify-records.h"

#include <gtest/gtest.h>

#include <string>

namespace tolven::platform {
namespace {

std::string Number(std::uint32_t number) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}

std::string Record(std::uint32_t next, std::uint32_t action, const std::u16string& name) {
  std::string bytes = Number(next) + Number(action) + Number(std::uint32_t(name.size() * 2));
  for (const char16_t unit : name) {
    bytes += static_cast<char>(unit);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

// From a copy of its own, so that a sanitizer sees a look behind the end.
bool Decode(const std::string& bytes, std::vector<WatchRecord>& records) {
  records.clear();
  const std::vector<char> copy(bytes.begin(), bytes.end());
  return DecodeNotifyRecords(copy.data(), copy.size(), records);
}

TEST(NotifyRecordsTest, DecodesAChainAndStopsWhereItBreaks) {
  // "a\ä€😀", then two bytes of padding.
  const std::string first = Record(28, 4, u"a\\\u00E4\u20AC\U0001F600") + "\xEE\xEE\xEE\xEE";
  const std::string second = Record(0, 77, u"x");
  const std::string whole = first + second;
  std::vector<WatchRecord> records;
  ASSERT_TRUE(Decode(whole, records));
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].action, 4u);
  EXPECT_EQ(records[0].name, "a\\\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(records[1].action, 77u);
  EXPECT_EQ(records[1].name, "x");
  EXPECT_TRUE(Decode("", records));
  EXPECT_TRUE(records.empty());
  for (std::size_t size = 1; size < whole.size(); ++size) {
    EXPECT_FALSE(Decode(whole.substr(0, size), records)) << size;
    EXPECT_EQ(records.size(), size > first.size() ? 1u : records.size());
    EXPECT_LE(records.size(), 1u);
  }
}

TEST(NotifyRecordsTest, RefusesWhatLeadsOutOfTheBuffer) {
  const std::string good = Record(0, 1, u"ab");
  const std::string bad[] = {
      Number(0) + Number(1) + Number(3) + "abcd",           // half a character
      Number(0) + Number(1) + Number(0xFFFFFFFE) + "abcd",  // longer than everything
      Record(4, 1, u"ab") + good,                           // into itself
      Record(12, 1, u"ab") + good,                          // into its name
      Record(0xFFFFFFF0, 1, u"ab") + good,
      Record(32, 1, u"ab") + good,  // to the very end
      Record(0, 1, std::u16string(u"a\0b", 3)),
  };
  std::vector<WatchRecord> records;
  for (const std::string& bytes : bad) EXPECT_FALSE(Decode(bytes, records));
  // A lone half of a pair is a name that text cannot hold.
  for (const char16_t unit : {char16_t{0xD83D}, char16_t{0xDE00}}) {
    ASSERT_TRUE(Decode(Record(0, 1, std::u16string{unit, u'x'}), records));
    EXPECT_EQ(records.at(0).name, "\xEF\xBF\xBDx");
  }
}

}  // namespace
}  // namespace tolven::platform
