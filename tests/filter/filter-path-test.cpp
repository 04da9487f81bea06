#include <gtest/gtest.h>

#include <string>
#include <utility>
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
  // Taken away from the front, rule after rule, each is the one that decides.
  const struct {
    const char* path;
    std::vector<std::pair<std::string, int>> rules;
  } cases[] = {
      {"f/d/n.e",
       {{"[Common]\nblack_dir_prefix=\"/d\"\n", -264},
        {"[Common]\nmax_length=1\n", -265},
        {"[Common]\nblack_char=\".\"\n", -258},
        {"[Common]\nblack_name=\"n.e\"\n", -261},
        {"[Common]\nblack_prefix=\"n\"\n", -259},
        {"[Common]\nblack_suffix=\"e\"\n", -260},
        {"[File]\nblack_char=\"n\"\n", -514},
        {"[File]\nblack_prefix=\"n\"\n", -515},
        {"[File]\nblack_suffix=\"e\"\n", -516},
        {"[File]\nblack_glob=\"n*\"\n", -519},
        {"[File]\nblack_name=\"n.e\"\n", -517},
        {"[File]\nblack_ext=\"e\"\n", -518},
        {"[Directory]\nblack_char=\"d\"\n", -770},
        {"[Directory]\nblack_name=\"d\"\n", -773},
        {"[Directory]\nblack_prefix=\"d\"\n", -771},
        {"[Directory]\nblack_suffix=\"d\"\n", -772}}},
      // Folders from the top, each with all its rules.
      {"f/c/d/n",
       {{"[Common]\nblack_name=\"c\"\n", -261},
        {"[Directory]\nblack_suffix=\"c\"\n", -772},
        {"[Common]\nblack_suffix=\"d\"\n", -260}}},
  };
  for (const auto& c : cases) {
    std::string text;
    for (auto rule = c.rules.rbegin(); rule != c.rules.rend(); ++rule) {
      text += rule->first;
      Check(text, c.path, rule->second);
    }
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
      {"", "f", -1},
      {"", "da/b", 0},
      {"", "d", 0},
      {"[Directory]\nblack_name=\"b\"", "f/a/b/", -773},
      {"[Directory]\nblack_name=\"b\"", "d//a//b//", -773},
      {"", "f/" + kLong511, 0},
      {"", "f/" + kLong512, -1},
      {"[Common]\nmax_length=511", "d/" + kLong512, 0},  // cut, so not too long
      {"[Common]\nmax_length=510", "d/" + kLong512, -265},
      {"[Directory]\nblack_suffix=\"x\"", "d/" + kLong511 + "x", 0},
      {"[Directory]\nblack_suffix=\"x\"", "d/" + kLong511.substr(1) + "x/y", -772},
      {"", "f" + deep4095 + "n", 0},
      {"", "f/" + deep4095 + "n", -1},
      {"", "d/" + deep4095 + "n", 0},
      {"", "f" + invalid, 0},
      {"[File]\nblack_name=\"\\x80\"", "f" + invalid, -517},
      {"[Common]\nblack_char=\"\xFF\"", "f" + invalid, -258},
  };
  for (const auto& c : cases) Check(c.rules, c.path, c.verdict);
}

TEST(FilterPath, SizesAndAttributes) {
  Filter filter;
  EXPECT_EQ(_filter_test_file_size(&filter, UINT64_MAX), 0);
  EXPECT_EQ(_filter_test_full_path_size(&filter, UINT64_MAX), 0);
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

TEST(FilterPath, Glob) {
  const struct {
    const char *text, *pattern;
    int verdict;
  } cases[] = {
      {"abc", "a*c", 0},     {"abc", "*b", -1},    {"", "*", 0},         {"abc", "", -1},
      {"", "", 0},           {"aBC", "Ab*", 0},    {"abc", "abc", 0},    {"abc", "ab", -1},
      {"ab", "ab*b", -1},    {"abab", "ab*ab", 0}, {"a?c", "a?c", 0},    {"abc", "a?c", -1},
      {"axbxc", "a*b*c", 0}, {"xaab", "*a*ab", 0}, {"xab", "*a*ab", -1}, {"abc", "**b**", 0},
      {"abcbd", "a*b*d", 0}, {"acb", "a*b*c", -1}, {"aXbYb", "a*b", 0},  {"[a]", "[a*", 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(_filter_glob(c.text, c.pattern), c.verdict) << c.text << " " << c.pattern;
  }
}

TEST(FilterPath, ExtensionLists) {
  WhiteList white;
  ForceHashCheckList force;
  for (const char* extension : {"TXT", "mdb"}) {
    _vt_string_set_insert(&white.File.white_ext, extension);
    _vt_string_set_insert(&force.File.force_hash_ext, extension);
  }
  const struct {
    const char* name;
    bool listed;
  } cases[] = {{"a.txt", true},   {"a.b.Mdb", true}, {".txt", false}, {"txt", false},
               {"a.txt.", false}, {"..txt", true},   {"a.tx", false}};
  for (const auto& c : cases) {
    EXPECT_EQ(_white_list_test(&white, c.name), c.listed ? 0 : -1) << c.name;
    EXPECT_EQ(_force_hash_extension_test(&force, c.name), c.listed ? 1 : 0) << c.name;
  }
  _vt_string_set_insert(&white.File.white_ext, "*");
  _vt_string_set_insert(&force.File.force_hash_ext, "*");
  EXPECT_EQ(_white_list_test(&white, "plain"), 0);
  EXPECT_EQ(_force_hash_extension_test(&force, "plain"), 1);
  for (const char* none : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(_white_list_test(&white, none), -1);
    EXPECT_EQ(_force_hash_extension_test(&force, none), -1);
  }
}

}  // namespace
}  // namespace tolven
