#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "filter/filter.h"
#include "filter/force-hash-check-list.h"
#include "filter/white-list.h"
#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "support/fifty-rules.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

using Texts = std::vector<std::string>;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

std::string Printed(const Filter& filter) {
  CaptureStdout();
  _filter_print(&filter, stdout);
  return GetCapturedStdout();
}

bool IsEmpty(const Filter& filter) { return Printed(filter) == Printed(Filter()); }

TEST(FilterFile, EveryErrorIsToldWithItsLineAndEmptiesTheFilter) {
  const std::string name33(33, 'k'), digits(4096, '1'), text(4097, 't');
  const std::map<const char*, Texts> sections = {
      {"SECTION_MISSING_RIGHT_BRACKET", {"[Common", "["}},
      {"SECTION_MISSING_SECTION", {"[]"}},
      {"SECTION_ILLEGAL_CHARACTER", {"[a b]", "[#]"}},
      {"SECTION_TOO_LONG", {"[" + name33 + "]"}},
      {"SECTION_UNDEFINED_SECTION", {"[common]"}},
      {"LINE_NOT_ENDED", {"[File] x"}},
      {"LINE_NOT_EXPECTED", {"\"a\""}},
  };
  const std::map<const char*, Texts> keys = {
      {"KEY_MISSING_KEY", {"= 1"}},
      {"KEY_ILLEGAL_CHARACTER", {"!key = 1", "max_size 1", "max_size"}},
      {"KEY_TOO_LONG", {name33 + " = 1"}},
      {"VALUE_NUMERIC_MISSING_INTEGER_PART", {"max_size = .5", "max_size = -"}},
      {"VALUE_NUMERIC_MISSING_FRACTIONAL_PART", {"max_size = 1."}},
      {"VALUE_NUMERIC_MISSING_VALUE", {"max_size = # 1", "max_size ="}},
      {"VALUE_NUMERIC_ILLEGAL_SYNTAX", {"max_size = 1k", "max_size = 01"}},
      {"VALUE_TOO_LONG", {"max_size = " + digits, "black_char = \"" + text + "\""}},
      {"LINE_NOT_ENDED", {"max_size = 1 2", "black_char = \"a\" \"b\""}},
      {"VALUE_STRING_MISSING_LEFT_QUOTE", {"black_char = a", "black_name = \"a\", b"}},
      {"VALUE_STRING_MISSING_RIGHT_QUOTE", {"black_char = \"a"}},
      {"VALUE_STRING_ILLEGAL_CHARACTER",
       {R"(black_char = "a\)", "black_char = \"a\tb\"", R"(black_char = "\q")",
        R"(black_char = "\x4g")", R"(black_char = "\400")", R"(black_char = "\000")"}},
      {"VALUE_STRING_EMPTY", {"black_char = \"\"", "black_name = \"a\", \"\""}},
      {"VALUE_SET_MISSING_SEPARATER", {"black_name = \"a\" \"b\""}},
  };
  const auto check = [](const std::string& before, const std::string& line, const char* error,
                        int number) {
    for (const char* after : {"", "\r\n[File]\nblack_ext = \"b\"\n"}) {
      Filter filter;
      CaptureStderr();
      const int result = _filter_parse(&filter, before + line + after);
      EXPECT_EQ(GetCapturedStderr(),
                std::string("parser: ") + error + " at line " + std::to_string(number) + "\n");
      EXPECT_TRUE(result == -1 && IsEmpty(filter)) << line;
    }
  };
  const std::string comment = "# first\n\n", file = "[File]\nblack_ext = \"a\" # why\n";
  for (const auto& [error, lines] : sections) {
    for (const std::string& line : lines) {
      check(comment, " \t" + line, error, 3);
      check(file, line, error, 3);
    }
  }
  for (const auto& [error, lines] : keys) {
    for (const std::string& line : lines) {
      check("", line, "LINE_NOT_EXPECTED", 1);
      check(file + comment, "\v\f" + line, error, 5);
    }
  }
  // A set that goes on takes nothing but strings.
  for (const char* line : {"[Common]", "max_size = 1", ", \"b\""}) {
    check(file + "black_name = \"x\",\n", line, "LINE_NOT_EXPECTED", 4);
  }
}

TEST(FilterFile, ReadsValuesInTheirForms) {
  Filter filter;
  ASSERT_EQ(_filter_parse(&filter,
                          "  [File]# comment\r\n"
                          "black_char = \"\\a\\b\\f\\n\\r\\t\\v\\'\\\"\\\\\\?\\x4A\\112\\377\"\n"
                          "black_name=\"a\" ,\"b#\",  # more\n\n  # between\n\t\"c\",\"C\"\n"
                          "max_size = -2.75\n"
                          "[Version]\nminor = 99999999999\nmajor=+0.5#\n"
                          "[File]\nblack_name = \"d\"\nmax_size = 99999999999999999999"),
            0);
  EXPECT_EQ(filter.File.black_char.str, "\a\b\f\n\r\t\v'\"\\?JJ\xFF");
  EXPECT_EQ(filter.File.black_name.set, (Texts{"a", "b#", "c", "C", "d"}));
  EXPECT_EQ(filter.File.max_size, std::uint64_t{INT64_MAX});
  EXPECT_EQ(filter.Version.minor, INT32_MAX);
  EXPECT_EQ(filter.Version.major, 0);
  // A later string replaces an earlier one; a line ends at a NUL byte, and is cut at 10,297 bytes.
  const std::string nul(1, '\0'), blanks(10'297 - 12, ' ');
  ASSERT_EQ(_filter_parse(&filter, "[File]\nblack_char = \"z\"" + nul + "x\nmax_size=-1"), 0);
  EXPECT_EQ(filter.File.black_char.str, "z");
  EXPECT_EQ(_filter_test_file_size(&filter, INT64_MAX), 0);
  EXPECT_EQ(_filter_parse(&filter, "[File]\nmax_size = 7" + blanks + "[EA]"), 0);
  EXPECT_EQ(_filter_parse(&filter, "[File]\nmax_size = 7" + blanks.substr(1) + "[EA]"), -1);
}

TEST(FilterFile, UnknownKeysNeedANewerVersion) {
  const test::TempFolder folder;
  const ustring path = folder / "list";
  for (const std::string version : {"0 0", "0 1", "1 0", "1 1", "1 7", "2 1"}) {
    // The rest of an unknown key's line is not looked at.
    test::WriteFile(path, "[Version]\nmajor=" + version.substr(0, 1) +
                              "\nminor=" + version.substr(2) +
                              "\n[File]\nnew-key = \"a\" !\nblack_ext=\"x\"\nwhite_ext=\"x\"\n"
                              "force_hash_ext=\"x\"\n");
    Filter filter;
    WhiteList white;
    ForceHashCheckList force;
    CaptureStdout();
    const int results[] = {_filter_read(&filter, path), _white_list_read(&white, path),
                           _force_hash_check_list_read(&force, path)};
    EXPECT_EQ(GetCapturedStdout().find("warning: unknown key (new-key)\nwarning: unknown key "
                                       "(white_ext)\nwarning: unknown key (force_hash_ext)\n"),
              0U);
    const bool taken = version == "1 1" || version == "1 7";
    for (const int result : results) EXPECT_EQ(result, taken ? 0 : -1) << version;
    for (const auto* set :
         {&filter.File.black_ext, &white.File.white_ext, &force.File.force_hash_ext}) {
      EXPECT_EQ(set->set.size(), taken ? 1U : 0U);
    }
  }
}

TEST(FilterFile, WritesWhatItReadsBack) {
  const test::TempFolder folder;
  const ustring path = folder / "filter";
  Filter filter, back;
  filter.Version = {1, 3};
  filter.Common.black_char.str = "'?\x7F";
  filter.Common.black_dir_prefix.set = {"/a \\b", "/\xC3\x84"};
  filter.File.max_size = 1ULL << 40;
  ASSERT_EQ(_filter_write(&filter, path), 0);
  EXPECT_EQ(test::ReadFile(path),
            "[Version]\nmajor = 1\nminor = 3\n[Common]\nblack_char = \"\\'\\?\\x7f\"\n"
            "black_dir_prefix = \"/a \\\\b\",\"/\\xc3\\x84\"\n"
            "[File]\nmax_size = 1099511627776\n[Directory]\n[EA]\n");

  // Every field, every byte, and a set that no single line can hold.
  ASSERT_EQ(_filter_parse(&filter, test::kFiftyRules), 0);
  for (int c = 1; c < 256; ++c) filter.File.black_char.str += static_cast<char>(c);
  for (int i = 0; i < 4000; ++i) filter.File.black_name.set.push_back("n" + std::to_string(i));
  filter.EA.black_ea_name.set = {std::string(2560, '\n'), std::string(4096, 'e')};
  ASSERT_EQ(_filter_write(&filter, path), 0);
  ASSERT_EQ(_filter_read(&back, path), 0);
  EXPECT_EQ(back.File.black_name.set, filter.File.black_name.set);
  EXPECT_EQ(Printed(back), Printed(filter));

  // What no file can say leaves the old one in place.
  for (const std::string& entry :
       {std::string(), std::string(4097, 'x'), std::string(3000, '\1')}) {
    Filter bad;
    bad.Directory.black_suffix.set = {"fine", entry};
    EXPECT_EQ(_filter_write(&bad, path), -1);
  }
  EXPECT_EQ(test::ReadFile(path), Printed(filter));
}

TEST(FilterFile, AFailedCallIsAnErrorAndLeavesTheFileWhole) {
  const test::TempFolder folder;
  const ustring path = folder / "filter";
  Filter rules;
  rules.File.black_ext.set = {"old"};
  ASSERT_EQ(_filter_write(&rules, path), 0);
  const std::string old = test::ReadFile(path);
  rules.File.black_ext.set = {"new"};
  platform::FaultPlan plan;
  platform::ForwardingFiles files(platform::files(), plan.hook());
  bool failed = true;
  for (unsigned nth = 1; failed; ++nth) {
    plan.Clear();
    plan.FailNth(nth, platform::ErrorKind::kNoSpace);
    platform::SetFiles(&files);
    const int result = _filter_write(&rules, path);
    failed = plan.failures() > 0;
    platform::SetFiles(nullptr);
    EXPECT_EQ(result, failed ? -1 : 0);
    EXPECT_EQ(test::ReadFile(path) == old, failed);
    EXPECT_FALSE(std::filesystem::exists((path + ".new").str()));
  }
  EXPECT_EQ(_filter_read(&rules, folder / "missing"), -1);
  EXPECT_TRUE(IsEmpty(rules));
}

}  // namespace
}  // namespace tolven
