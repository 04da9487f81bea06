#include "lib/config.h"

#include <gtest/gtest.h>

#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

using test::TempFolder;

// What parsing leaves: "key=value;" in order, or "malformed".
std::string Parsed(std::string_view text) {
  Config config;
  config.set("before", "kept");
  if (config.parse(text) < 0) return config.begin() == config.end() ? "malformed" : "not emptied";
  config.unset("before");
  std::string result;
  for (const auto& [key, value] : config) {
    result.append(key.view()).append("=").append(value.view()).append(";");
  }
  return result;
}

TEST(Config, ReadsLines) {
  const struct {
    std::string_view text, result;
  } cases[] = {
      {"a=b", "a=b;"},
      {"\t a\v=\f b \r\n# c\n\n  \r\nx=y#z # w", "a=b;x=y#z;"},
      {"Az-._9=1\nAz-._9=2\n", "Az-._9=2;"},
      {"a='b c'#d\ne=\"it's\"\nf=''", "a=b c;e=it's;f=;"},
      {"a=#b", "a=#b;"},
      {"a=b\tc", "malformed"},
      {"a=b\t#c", "a=b;"},
      {"a=\xC3\xA4'\"", "a=\xC3\xA4'\";"},
      {"key\nkey#comment\nkey", ""},
      {"key \n", "malformed"},
      {"key #", "malformed"},
      {"key\r\n", "malformed"},
      {"a=\n", "malformed"},
      {"a= ", "malformed"},
      {"a=b\nc=d e", "malformed"},
      {"a='b", "malformed"},
      {"a='b\n'", "malformed"},
      {"a='b\x7F'", "malformed"},
      {"a=b\x7F", "malformed"},
      {"a='b'c", "malformed"},
      {"a:b", "malformed"},
      {"\xEF\xBB\xBF"
       "a=b",
       "malformed"},
      {std::string_view("a=b\0 c d\ne=f", 12), "a=b;e=f;"},
  };
  for (const auto& c : cases) EXPECT_EQ(Parsed(c.text), c.result) << c.text;
  // A line is split behind 8,191 bytes, and the rest is a line of its own.
  EXPECT_EQ(Parsed("a=" + std::string(8189, 'v') + "b=c\n"),
            "a=" + std::string(8189, 'v') + ";b=c;");
  EXPECT_EQ(Parsed("#" + std::string(8190, 'v') + "b = c d"), "malformed");
}

TEST(Config, TellsNumbersAndFlags) {
  Config config;
  ASSERT_EQ(
      config.parse("n=' 42 apples'\nbig=99999999999\nminus=-7\nplus=+7\nword=x\nt=true\nT=True"),
      0);
  EXPECT_EQ(config.get_int("n", 1), 42);
  EXPECT_EQ(config.get_int("big", 1), 1);
  EXPECT_EQ(config.get_int("minus", 1), -7);
  EXPECT_EQ(config.get_int("plus", 1), 7);
  EXPECT_EQ(config.get_int("word", 1), 1);
  EXPECT_TRUE(config.get_bool("t"));
  EXPECT_FALSE(config.get_bool("T", true));
  EXPECT_TRUE(config.get_bool("absent", true));
}

TEST(Config, KeepsTheOldFileUntilTheNewOneIsWhole) {
  const TempFolder folder;
  const ustring path = folder / "config";
  Config config;
  EXPECT_EQ(config.read(""), -1);
  EXPECT_EQ(config.read(path), -1);
  test::WriteFile(path + ".new", "left by a crash");
  for (const char* value : {"plain", "two words", "it's", "'", "say \"hi\"", "", "#", "a\\b"}) {
    config.set("key", value);
    ASSERT_EQ(config.write(path), 0) << value;
    Config copy;
    ASSERT_EQ(copy.read(path), 0) << value;
    EXPECT_EQ(copy["key"], value);
  }
  const std::string before = test::ReadFile(path);
  for (const char* value : {"line\nend", "it's \"both\""}) {
    config.set("key", value);
    EXPECT_EQ(config.write(path), -1);
  }
  config.set("key", "new");

  platform::FaultPlan plan;
  platform::ForwardingFiles faulty(platform::files(), plan.hook());
  platform::Files* const real = platform::SetFiles(&faulty);
  int result = -1;
  for (unsigned nth = 1; result != 0; ++nth) {
    EXPECT_EQ(test::ReadFile(path), before);
    plan.Clear();
    plan.FailNth(nth, platform::ErrorKind::kNoSpace);
    result = config.write(path);
    ASSERT_LT(nth, 10u);
  }
  platform::SetFiles(real);
  EXPECT_EQ(test::ReadFile(path), "key=new\n");
  EXPECT_FALSE(std::filesystem::exists(path.str() + ".new"));
}

}  // namespace
}  // namespace tolven
