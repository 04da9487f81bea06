#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "filter/filter.h"
#include "filter/force-hash-check-list.h"
#include "filter/white-list.h"
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
  const std::string name33(33, 'k');
  const std::string digits(4096, '1'), text(4097, 't');
  using Table = std::map<const char*, Texts>;
  const Table sections = {
      {"SECTION_MISSING_RIGHT_BRACKET", {"[Common", "["}},
      {"SECTION_MISSING_SECTION", {"[]"}},
      {"SECTION_ILLEGAL_CHARACTER", {"[a b]", "[#]"}},
      {"SECTION_TOO_LONG", {"[" + name33 + "]"}},
      {"SECTION_UNDEFINED_SECTION", {"[common]"}},
      {"LINE_NOT_ENDED", {"[File] x"}},
      {"LINE_NOT_EXPECTED", {"\"a\""}},
  };
  const Table keys = {
      {"KEY_MISSING_KEY", {"= 1"}},
      {"KEY_ILLEGAL_CHARACTER", {"!key = 1", "max_size 1", "max_size"}},
      {"KEY_TOO_LONG", {name33 + " = 1"}},
      {"VALUE_NUMERIC_MISSING_INTEGER_PART", {"max_size = .5", "max_size = -"}},
      {"VALUE_NUMERIC_MISSING_FRACTIONAL_PART", {"max_size = 1."}},
      {"VALUE_NUMERIC_MISSING_VALUE", {"max_size = # 1", "max_size ="}},
      {"VALUE_NUMERIC_ILLEGAL_SYNTAX", {"max_size = 1k", "max_size = 01"}},
      {"VALUE_TOO_LONG", {"max_size = " + digits, "black_char = \"" + text + "\""}},
      {"LINE_NOT_ENDED", {"max_size = 1 2", "black_char = \"a\" \"b\""}},
      {"VALUE_STRING_MISSING_LEFT_QUOTE",
       {"black_char = a", "black_char =", "black_name = \"a\", b"}},
      {"VALUE_STRING_MISSING_RIGHT_QUOTE", {"black_char = \"a"}},
      {"VALUE_STRING_ILLEGAL_CHARACTER",
       {"black_char = \"a\\", "black_char = \"a\tb\"", "black_char = \"\\q\"",
        "black_char = \"\\x4g\"", "black_char = \"\\400\"", "black_char = \"\\18\"",
        "black_char = \"\\000\""}},
      {"VALUE_STRING_EMPTY", {"black_char = \"\"", "black_name = \"a\", \"\""}},
      {"VALUE_SET_MISSING_SEPARATER", {"black_name = \"a\" \"b\""}},
  };
  const auto check = [](const std::string& before, const std::string& line, const char* error,
                        int number) {
    for (const char* after : {"", "\n", "\r\n[File]\nblack_ext = \"b\"\n"}) {
      Filter filter;
      CaptureStderr();
      const int result = _filter_parse(&filter, before + line + after);
      EXPECT_EQ(GetCapturedStderr(),
                std::string("parser: ") + error + " at line " + std::to_string(number) + "\n");
      EXPECT_EQ(result, -1) << line;
      EXPECT_TRUE(IsEmpty(filter)) << line;
    }
  };
  const std::string comment = "# first\n\n", file = "[File]\nblack_ext = \"a\" # why\n";
  for (const auto& [error, lines] : sections) {
    for (const std::string& line : lines) {
      check("", line, error, 1);
      check(comment, " \t" + line, error, 3);
      check(file, line, error, 3);
    }
  }
  for (const auto& [error, lines] : keys) {
    for (const std::string& line : lines) {
      check("", line, "LINE_NOT_EXPECTED", 1);
      check(file, line, error, 3);
      check(file + comment, "\v\f" + line, error, 5);
    }
  }
  // A set that goes on takes nothing but strings.
  for (const char* line : {"[Common]", "a", "max_size = 1", ", \"b\""}) {
    check(file + "black_name = \"x\",\n", line, "LINE_NOT_EXPECTED", 4);
  }
  check(file + "black_name = \"x\",\n", "\"y\" \"z\"", "VALUE_SET_MISSING_SEPARATER", 4);
}

TEST(FilterFile, ReadsValuesInTheirForms) {
  Filter filter;
  ASSERT_EQ(_filter_parse(&filter,
                          "  [File]# comment\r\n"
                          "black_char = \"\\a\\b\\f\\n\\r\\t\\v\\'\\\"\\\\\\?\\x4A\\112\\377\"\n"
                          "black_name=\"a\" ,\"b#\",  # more\n"
                          "\n"
                          "  # between\n"
                          "\t\"c\",\"C\"\n"
                          "max_size = -2.75\n"
                          "[Version]\nminor = 99999999999\nmajor=+0.5#\n"
                          "[File]\n"
                          "black_name = \"d\"\n"
                          "max_size = 99999999999999999999"),
            0);
  EXPECT_EQ(filter.File.black_char.str, "\a\b\f\n\r\t\v'\"\\?JJ\xFF");
  EXPECT_EQ(filter.File.black_name.set, (Texts{"a", "b#", "c", "C", "d"}));
  EXPECT_EQ(filter.File.max_size, std::uint64_t{INT64_MAX});
  EXPECT_EQ(filter.Version.minor, INT32_MAX);
  EXPECT_EQ(filter.Version.major, 0);
  // A later string replaces an earlier one; a line ends at a NUL byte.
  const std::string nul(1, '\0');
  ASSERT_EQ(_filter_parse(&filter, "[File]\nblack_char = \"z\"" + nul + "x\nmax_size=-1"), 0);
  EXPECT_EQ(filter.File.black_char.str, "z");
  EXPECT_EQ(_filter_test_file_size(&filter, INT64_MAX), 0);
  // Lines are cut at 10,297 bytes.
  const std::string blanks(10'297 - 12, ' ');
  EXPECT_EQ(_filter_parse(&filter, "[File]\nmax_size = 7" + blanks + "[EA]"), 0);
  CaptureStderr();
  EXPECT_EQ(_filter_parse(&filter, "[File]\nmax_size = 7" + blanks.substr(1) + "[EA]"), -1);
  EXPECT_EQ(GetCapturedStderr(), "parser: LINE_NOT_ENDED at line 2\n");
}

TEST(FilterFile, UnknownKeysNeedANewerVersion) {
  const test::TempFolder folder;
  const ustring path = folder / "list";
  const struct {
    const char* version;
    int result;
  } cases[] = {{"major=1\nminor=1\n", 0},
               {"major=1\nminor=7\n", 0},
               {"major=1\nminor=0\n", -1},
               {"major=2\nminor=1\n", -1},
               {"", -1},
               {"minor=1\n", -1}};
  for (const auto& c : cases) {
    // The rest of an unknown key's line is not looked at.
    test::WriteFile(path, std::string("[Version]\n") + c.version +
                              "[File]\nnew-key = \"a\" !\nblack_ext=\"x\"\nwhite_ext=\"x\"\n"
                              "force_hash_ext=\"x\"\n");
    Filter filter;
    WhiteList white;
    ForceHashCheckList force;
    CaptureStdout();
    EXPECT_EQ(_filter_read(&filter, path), c.result) << c.version;
    EXPECT_EQ(_white_list_read(&white, path), c.result) << c.version;
    EXPECT_EQ(_force_hash_check_list_read(&force, path), c.result) << c.version;
    EXPECT_EQ(GetCapturedStdout(),
              "warning: unknown key (new-key)\nwarning: unknown key (white_ext)\n"
              "warning: unknown key (force_hash_ext)\nwarning: unknown key (new-key)\n"
              "warning: unknown key (black_ext)\nwarning: unknown key (force_hash_ext)\n"
              "warning: unknown key (new-key)\nwarning: unknown key (black_ext)\n"
              "warning: unknown key (white_ext)\n");
    const std::size_t kept = c.result == 0 ? 1 : 0;
    EXPECT_EQ(filter.File.black_ext.set.size(), kept);
    EXPECT_EQ(white.File.white_ext.set.size(), kept);
    EXPECT_EQ(force.File.force_hash_ext.set.size(), kept);
  }
}

TEST(FilterFile, WritesWhatItReadsBack) {
  const test::TempFolder folder;
  const ustring path = folder / "filter";
  Filter filter, back;
  filter.Version = {1, 3};
  filter.Common.black_char.str = "'?\x7F";
  filter.Common.black_dir_prefix.set = {"/a \\b", "/\xC3\x84"};
  filter.Common.max_path = 7;
  filter.File.max_size = 1ULL << 40;
  filter.Directory.black_name.set = {"x"};
  ASSERT_EQ(_filter_write(&filter, path), 0);
  EXPECT_EQ(test::ReadFile(path),
            "[Version]\nmajor = 1\nminor = 3\n[Common]\nblack_char = \"\\'\\?\\x7f\"\n"
            "black_dir_prefix = \"/a \\\\b\",\"/\\xc3\\x84\"\nmax_path = 7\n"
            "[File]\nmax_size = 1099511627776\n[Directory]\nblack_name = \"x\"\n[EA]\n");

  // Every field, every byte, and a set that no single line can hold.
  ASSERT_EQ(_filter_parse(&filter, test::kFiftyRules), 0);
  for (int c = 1; c < 256; ++c) filter.File.black_char.str += static_cast<char>(c);
  for (int i = 0; i < 4000; ++i) filter.File.black_name.set.push_back("n" + std::to_string(i));
  filter.EA.black_ea_name.set = {std::string(2560, '\n'), std::string(4096, 'e')};
  ASSERT_EQ(_filter_write(&filter, path), 0);
  ASSERT_EQ(_filter_read(&back, path), 0);
  EXPECT_EQ(back.File.black_char.str, filter.File.black_char.str);
  EXPECT_EQ(back.File.black_name.set, filter.File.black_name.set);
  EXPECT_EQ(back.EA.black_ea_name.set, filter.EA.black_ea_name.set);
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

TEST(FilterFile, CutAnywhereItReadsLessAndNeverMore) {
  const std::string whole = test::kFiftyRules;
  Filter all;
  ASSERT_EQ(_filter_parse(&all, whole), 0);
  CaptureStderr();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    Filter part;
    const int result = _filter_parse(&part, whole.substr(0, size));
    EXPECT_TRUE(result == 0 || IsEmpty(part)) << size;
    EXPECT_LE(part.Common.black_name.set.size(), all.Common.black_name.set.size());
    EXPECT_LE(part.File.black_ext.set.size(), all.File.black_ext.set.size());
  }
  GetCapturedStderr();
}

TEST(FilterFile, AFailedCallIsAnErrorAndLeavesTheFileWhole) {
  const test::TempFolder folder;
  const ustring path = folder / "filter";
  Filter rules;
  ASSERT_EQ(_filter_parse(&rules, "[File]\nblack_ext = \"old\""), 0);
  ASSERT_EQ(_filter_write(&rules, path), 0);
  const std::string old = test::ReadFile(path);
  rules.File.black_ext.set.front() = "new";
  int failures = 0;
  bool failed = true;
  for (int at = 1; failed; ++at) {
    int calls = 0;
    failed = false;
    platform::ForwardingFiles files(platform::files(), [&](const char*) -> platform::Status {
      if (++calls != at) return {};
      failed = true;
      return {platform::ErrorKind::kNoSpace, 28};
    });
    platform::SetFiles(&files);
    const int result = _filter_write(&rules, path);
    platform::SetFiles(nullptr);
    EXPECT_EQ(result, failed ? -1 : 0);
    EXPECT_EQ(test::ReadFile(path) == old, failed);
    EXPECT_FALSE(std::filesystem::exists((path + ".new").str()));
    failures += failed;
  }
  EXPECT_EQ(failures, 5);

  for (const ustring& unreadable : {folder / "missing", folder / ""}) {
    CaptureStderr();
    EXPECT_EQ(_filter_read(&rules, unreadable), -1);
    EXPECT_EQ(GetCapturedStderr(), "parser: INTERNAL_ERROR at line 0\n");
    EXPECT_TRUE(IsEmpty(rules));
  }
}

}  // namespace
}  // namespace tolven
