#include <gtest/gtest.h>

#include "acl/acl-api.h"

namespace tolven::ACL_API {
namespace {

const ACL::UserInfo kUser{7, {20, 30}};

// A chain from the object up, of lists (or of modes, as "0x...") owned by user 1 and group 2.
ACL Chain(const std::vector<std::string>& lists, bool is_dir = false) {
  ACL acl;
  for (int level = static_cast<int>(lists.size()) - 1; level >= 0; --level) {
    ACL::Privilege privilege;
    const std::string& text = lists[static_cast<std::size_t>(level)];
    privilege.level = level;
    privilege.is_dir = is_dir || level > 0;
    privilege.unix_perm = {1, 2, 0};
    if (text.starts_with("0x")) {
      privilege.unix_perm.unix_mode = static_cast<std::uint32_t>(std::stoul(text, nullptr, 16));
    } else {
      privilege.acl = text;
    }
    acl.AddPrivilege(privilege);
  }
  return acl;
}

// "rw" for what the user may do with the object, "a" when he gets to it.
std::string Verdict(const ACL& acl, const ACL::UserInfo& user = kUser) {
  return std::string(acl.IsReadable(user) ? "r" : "") + (acl.IsWritable(user) ? "w" : "") +
         (acl.IsAccessible(user, 0) ? "a" : "");
}

TEST(AclRule, ReadsWhatItCanAndWritesTheObjectsOwn) {
  ACLRule rule;
  rule.set("1 24 4 8 0 117 6 1 0 1 7 5 0 1 2 1 7 3 0 1 0 4 4294967294 4 0 0 0 ");
  ASSERT_EQ(rule.getEntryNum(), 4);
  EXPECT_EQ(rule.get(), "1 24 3 4 -2 4 0 0 0 1 7 3 0 1 0 8 0 117 6 1 0 ");
  rule.set("1 24 4000000000 1 7 3 0 1 0 1 8 3 0 1");
  EXPECT_EQ(rule.get(), "1 24 1 1 7 3 0 1 0 ");
  for (const char* none : {"", " ", "x", "99999999999999999999 1 0 "}) {
    rule.set(none);
    EXPECT_EQ(rule.get(), "") << none;
  }
}

TEST(Acl, JudgesPlainModesByClass) {
  struct {
    const char* mode;
    ACL::UserInfo user;
    const char *file, *dir;
  } const cases[] = {
      {"0x700", {1, {2}}, "rwa", "rwa"}, {"0x077", {1, {2}}, "", ""},
      {"0x060", {9, {2}}, "rwa", "wa"},  {"0x004", {9, {}}, "ra", ""},
      {"0x005", {9, {}}, "ra", "ra"},    {"0x002", {9, {}}, "wa", "wa"},
      {"0x755", {9, {}}, "ra", "ra"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Verdict(Chain({c.mode}), c.user), c.file) << c.mode;
    EXPECT_EQ(Verdict(Chain({c.mode}, true), c.user), c.dir) << c.mode;
  }
  EXPECT_EQ(Verdict(ACL()), "");
}

TEST(Acl, DenialsWinAndFoldersHide) {
  const std::string all = "1 24 1 8 0 8191 6 1 0 ", none = "1 24 0 ";
  EXPECT_EQ(Verdict(Chain({all})), "rwa");
  EXPECT_EQ(Verdict(Chain({"1 24 2 1 7 8191 0 1 0 8 0 4 0 0 0 "})), "wa");
  EXPECT_EQ(Verdict(Chain({"1 24 1 8 0 8191 7 1 0 "})), "") << "inherit-only";
  EXPECT_EQ(Verdict(Chain({"1 24 1 4 30 116 0 1 0 "})), "ra");
  EXPECT_EQ(Verdict(Chain({"1 24 1 4 7 8191 0 1 0 "})), "") << "a group's id is no user's";
  EXPECT_EQ(Verdict(Chain({"1 24 1 2 0 8191 0 1 0 "}), {1, {}}), "rwa");
  EXPECT_EQ(Verdict(Chain({"1 152 1 2 0 8191 0 1 0 "}), {1, {}}), "") << "the group owns it";
  EXPECT_EQ(Verdict(Chain({"1 152 1 2 0 8191 0 1 0 "}), {9, {2}}), "rwa");
  EXPECT_EQ(Verdict(Chain({all, none})), "rw");
  EXPECT_EQ(Verdict(Chain({all, all, "0x770"})), "rw");
  EXPECT_EQ(Verdict(Chain({all, "1 24 1 8 0 394 0 1 0 ", "0x005"})), "rwa");
}

TEST(Acl, EntriesPassDownByKindAndDistance) {
  const std::string inherits = "1 88 0 ", own = "1 24 0 ";
  const auto list = [](int perm, int inherit, int allow) {
    return "1 88 1 8 0 " + std::to_string(perm) + " " + std::to_string(inherit) + " " +
           std::to_string(allow) + " 0 ";
  };
  const auto reads = [](const ACL& acl) { return acl.IsReadable(kUser); };
  EXPECT_TRUE(reads(Chain({inherits, list(117, 2, 1)})));
  EXPECT_TRUE(reads(Chain({inherits, list(117, 3, 1)}))) << "inherit-only is for what is below";
  EXPECT_FALSE(reads(Chain({inherits, list(117, 4, 1)})));
  EXPECT_FALSE(reads(Chain({inherits, list(117, 2, 1)}, true)));
  EXPECT_TRUE(reads(Chain({inherits, list(117, 4, 1)}, true)));
  EXPECT_FALSE(reads(Chain({own, list(117, 2, 1)}))) << "nothing comes from above";
  EXPECT_TRUE(reads(Chain({inherits, list(117, 10, 1)})));
  EXPECT_TRUE(reads(Chain({inherits, inherits, list(117, 2, 1)})));
  EXPECT_FALSE(reads(Chain({inherits, inherits, list(117, 10, 1)})));
  EXPECT_FALSE(reads(Chain({inherits, "1 88 1 8 0 117 10 1 1 "}))) << "a copy from above";
  // The nearest that settles all rights ends the walk; a denial before that counts.
  EXPECT_TRUE(reads(Chain({inherits, list(117, 2, 1), list(4, 2, 0)})));
  EXPECT_FALSE(reads(Chain({inherits, list(4, 2, 0), list(117, 2, 1)})));
  EXPECT_TRUE(reads(Chain({inherits, "0x004"})));
}

TEST(Acl, ReplacesOneLevel) {
  ACL acl = Chain({"0x000", "0x007"});
  ACL::Privilege open;
  open.unix_perm.unix_mode = 7;
  acl.UpdateLevelInfo(1, open);
  EXPECT_EQ(Verdict(acl), "");
  acl.UpdateLevelInfo(0, open);
  EXPECT_EQ(Verdict(acl), "rwa");
  EXPECT_TRUE(acl.IsUnixMode(1));
  EXPECT_FALSE(acl.IsUnixMode(2) || acl.IsUnixMode(-1) || acl.IsAccessible(kUser, 2));
}

}  // namespace
}  // namespace tolven::ACL_API
