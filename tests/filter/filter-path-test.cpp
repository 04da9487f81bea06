#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "filter/filter.h"
#include "filter/force-hash-check-list.h"
#include "filter/glob.h"
#include "filter/white-list.h"

namespace tolven {
namespace {

// `path` has an "f" or "d" in front, for a file or a folder.
void Check(const std::string& rules, const std::string& path, int verdict) {
  Filter filter;
  ASSERT_EQ(_filter_parse(&filter, rules), 0) << rules;
  EXPECT_EQ(_filter_test_path(&filter, path[0] == 'd', path.c_str() + 1), verdict)
      << rules << "\n"
      << path.substr(0, 80);
}

const std::string kLong511(511, 'n'), kLong512(512, 'n');

TEST(FilterPath, EachRuleHitsWhatItNamesAndNothingElse) {
  const struct {
    const char* rule;
    int code;
    std::vector<std::string> hits, passes;
  } cases[] = {
      {"[Common]\nblack_char=\"|\"", -258, {"f/a/x|y", "f/x|y/a"}, {"f/a"}},
      {"[Common]\nblack_prefix=\".\"", -259, {"f/a/b/.DS", "f/.x/file"}, {"d/a/b.c"}},
      {"[Common]\nblack_suffix=\".Part\"", -260, {"d/x/A.pART"}, {"d/x/part"}},
      {"[Common]\nblack_name=\"t.db\"", -261, {"f/T.DB/x", "f/T.db"}, {"f/t.db2"}},
      // Only ASCII letters fold.
      {"[Common]\nblack_name=\"\xC3\x84\"", -261, {"d/\xC3\x84"}, {"d/\xC3\xA4"}},
      {"[Common]\nblack_dir_prefix=\"/A/b\"", -264, {"d/a/B", "f/a/B/c"}, {"f/a/Bc", "f/x/a/b"}},
      {"[Common]\nblack_path_prefix_selective_sync=\"/A\"", -264, {"f/a/B/c"}, {"f/ab"}},
      {"[Common]\nmax_length=3", -265, {"f/abc/abcd", "d/abcd/abc"}, {"f/abc/abc"}},
      {"[File]\nblack_char=\":\"", -514, {"f/a/b:"}, {"f/a:/b", "d/b:"}},
      {"[File]\nblack_prefix=\"core\"", -515, {"f/x/COREdump"}, {"f/core/x", "f/cor"}},
      {"[File]\nblack_suffix=\"~\"", -516, {"f/x/a~"}, {"d/x/a~"}},
      {"[File]\nblack_name=\"a\"", -517, {"f/x/A"}, {"f/a/x"}},
      {"[File]\nblack_name_selective_sync=\"a\"", -517, {"f/A"}, {"f/aa"}},
      {"[File]\nblack_ext=\"TMP\"",
       -518,
       {"f/a.tmp", "f/a.b.tmp"},
       {"f/a.tmp.txt", "f/.tmp", "f/x.y/tmp", "d/a.tmp"}},
      {"[File]\nblack_ext_selective_sync=\"TMP\"", -518, {"f/a.tmp"}, {"f/a"}},
      {"[File]\nblack_glob=\"A*c\", \"x*\"", -519, {"f/X", "f/abC"}, {"f/ab", "d/x"}},
      {"[Directory]\nblack_char=\"?\"", -770, {"f/a?/b"}, {"f/a/?"}},
      {"[Directory]\nblack_prefix=\".t\"", -771, {"d/a/.Trash"}, {"f/a/.t"}},
      {"[Directory]\nblack_suffix=\".app\"", -772, {"d/x.app/y"}, {"f/x.app"}},
      {"[Directory]\nblack_name=\"bin\"", -773, {"f/a/BIN/b"}, {"f/a/bin"}},
  };
  for (const auto& c : cases) {
    for (const std::string& path : c.hits) Check(c.rule, path, c.code);
    for (const std::string& path : c.passes) Check(c.rule, path, 0);
  }
}

TEST(FilterPath, TheFirstRuleInOrderDecides) {
  // Taken away from the front, rule after rule, each is the one that decides; folders last, from
  // the top, each with all its rules.
  const struct {
    const char* rule;
    int code;
  } rules[] = {
      {"[Common]\nblack_dir_prefix=\"/d\"\n", -264}, {"[Common]\nmax_length=3\n", -265},
      {"[Common]\nblack_char=\".\"\n", -258},        {"[Common]\nblack_name=\"nn.e\"\n", -261},
      {"[Common]\nblack_prefix=\"n\"\n", -259},      {"[Common]\nblack_suffix=\"e\"\n", -260},
      {"[File]\nblack_char=\"n\"\n", -514},          {"[File]\nblack_prefix=\"n\"\n", -515},
      {"[File]\nblack_suffix=\"e\"\n", -516},        {"[File]\nblack_glob=\"n*\"\n", -519},
      {"[File]\nblack_name=\"nn.e\"\n", -517},       {"[File]\nblack_ext=\"e\"\n", -518},
      {"[Common]\nblack_name=\"d\"\n", -261},        {"[Directory]\nblack_char=\"d\"\n", -770},
      {"[Directory]\nblack_name=\"d\"\n", -773},     {"[Directory]\nblack_prefix=\"d\"\n", -771},
      {"[Directory]\nblack_suffix=\"d\"\n", -772},   {"[Common]\nblack_suffix=\"x\"\n", -260},
  };
  std::string text;
  for (auto rule = std::rbegin(rules); rule != std::rend(rules); ++rule) {
    text += rule->rule;
    Check(text, "f/d/x/nn.e", rule->code);
  }
}

TEST(FilterPath, OddPathsGetTheirVerdict) {
  const std::string deep4095 = "/" + std::string(4093, 'd') + "/";
  const std::string invalid = "/\xFF\xC3/\x80";
  const struct {
    std::string rules, path;
    int verdict;
  } cases[] = {
      {"", "fa/b", -1},
      {"", "da/b", 0},
      {"[Directory]\nblack_name=\"b\"", "f/a/b/", -773},
      {"[Directory]\nblack_name=\"b\"", "d//a//b//", -773},
      {"", "f/" + kLong511, 0},
      {"", "f/" + kLong512, -1},
      {"[Common]\nmax_length=511", "d/" + kLong512, 0},  // cut, so not too long
      {"[Common]\nmax_length=510", "d/" + kLong512, -265},
      {"[Directory]\nblack_suffix=\"x\"", "d/" + kLong511 + "x", 0},
      {"", "f" + deep4095 + "n", 0},
      {"", "f/" + deep4095 + "n", -1},
      {"", "d/" + deep4095 + "n", 0},
      {"[File]\nblack_name=\"\\x80\"", "f" + invalid, -517},
      {"[Common]\nblack_char=\"\xFF\"", "f" + invalid, -258},
  };
  for (const auto& c : cases) Check(c.rules, c.path, c.verdict);

  Filter filter;
  EXPECT_EQ(_filter_test_file_size(&filter, UINT64_MAX), 0);
  ASSERT_EQ(_filter_parse(&filter,
                          "[File]\nmax_size_selective_sync=5000000000\n[Common]\nmax_path=9\n"
                          "[EA]\nblack_ea_name=\"Com.App\"\n"),
            0);
  EXPECT_EQ(_filter_test_file_size(&filter, 5'000'000'000), 0);
  EXPECT_EQ(_filter_test_file_size(&filter, 5'000'000'001), -523);
  EXPECT_EQ(_filter_test_full_path_size(&filter, 9), 0);
  EXPECT_EQ(_filter_test_full_path_size(&filter, 10), -266);
  EXPECT_EQ(_filter_test_ea(&filter, "com.aPP"), -1029);
  EXPECT_EQ(_filter_test_ea(&filter, "com.app2"), 0);
}

TEST(FilterPath, GlobsAndExtensions) {
  const struct {
    const char *text, *pattern;
    int verdict;
  } globs[] = {
      {"abc", "a*c", 0},    {"abc", "*b", -1},    {"", "*", 0},        {"abc", "", -1},
      {"aBC", "Ab*", 0},    {"abc", "abc", 0},    {"abc", "ab", -1},   {"ab", "ab*b", -1},
      {"abab", "ab*ab", 0}, {"a?c", "a?c", 0},    {"abc", "a?c", -1},  {"axbxc", "a*b*c", 0},
      {"xaab", "*a*ab", 0}, {"xab", "*a*ab", -1}, {"abc", "**b**", 0}, {"acb", "a*b*c", -1},
  };
  for (const auto& c : globs) {
    EXPECT_EQ(_filter_glob(c.text, c.pattern), c.verdict) << c.text << " " << c.pattern;
  }

  WhiteList white;
  ForceHashCheckList force;
  const auto check = [&](const char* name, bool listed) {
    EXPECT_EQ(_white_list_test(&white, name), listed ? 0 : -1) << name;
    EXPECT_EQ(_force_hash_extension_test(&force, name), listed ? 1 : 0) << name;
  };
  white.File.white_ext.set = force.File.force_hash_ext.set = {"TXT", "mdb"};
  for (const char* name : {"a.txt", "a.b.Mdb", "..txt"}) check(name, true);
  for (const char* name : {".txt", "txt", "a.txt.", "a.tx"}) check(name, false);
  white.File.white_ext.set = force.File.force_hash_ext.set = {"*"};
  check("plain", true);
  for (const char* none : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(_white_list_test(&white, none), -1);
    EXPECT_EQ(_force_hash_extension_test(&force, none), -1);
  }
}

}  // namespace
}  // namespace tolven
