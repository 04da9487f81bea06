#include "ctl/json-tree.h"

#include <gtest/gtest.h>

#include "ctl/home.h"
#include "ctl/notification-log.h"
#include "lib/black-list2.h"
#include "lib/config.h"
#include "support/temp-folder.h"

namespace tolven::ctl {
namespace {

TEST(JsonTree, MapsEveryTypeBothWays) {
  PObject tree;
  std::string error;
  const std::string text =
      R"({"array":[null,1,"x",[],{}],"big":18446744073709551615,"file":)"
      R"({"$binary":{"length":7,"offset":3,"path":"/p"}},"text":"h\u00e9\"\n"})";
  ASSERT_TRUE(JsonToTree(text, tree, error)) << error;
  EXPECT_EQ(tree["big"].asUInt64(), UINT64_MAX);
  EXPECT_EQ(tree["file"].asBinary().offset, 3u);
  EXPECT_EQ(tree["text"].asString(), "h\xC3\xA9\"\n");
  PObject again;
  ASSERT_TRUE(JsonToTree(TreeToJson(tree, true), again, error)) << error;
  EXPECT_EQ(again.toString(), tree.toString());

  ASSERT_TRUE(JsonToTree("[true, false, -1]", tree, error));
  EXPECT_EQ(tree.toString(), "[1, 0, 18446744073709551615]");
}

TEST(JsonTree, RefusesWithOneLine) {
  for (const std::string& text :
       {std::string("{bad"), std::string(""), std::string("1 2"), std::string("[1.5]"),
        std::string(R"({"$binary": {"path": 1}})"), std::string(100'000, '[')}) {
    PObject tree;
    std::string error;
    EXPECT_FALSE(JsonToTree(text, tree, error)) << text.substr(0, 40);
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(error.find('\n'), std::string::npos);
  }
  PObject deep;
  PObject* inner = &deep;
  for (int i = 0; i < 100'000; ++i) {
    inner->asArray().resize(1);
    inner = &inner->asArray()[0];
  }
  EXPECT_LT(TreeToJson(deep, false).size(), 2000u);
}

TEST(NotificationLog, NumbersAndForgets) {
  NotificationLog log;
  for (int i = 0; i < 1200; ++i) log.Add(PObject(PObject::integer_type(i)));
  std::uint64_t next = 0;
  EXPECT_EQ(log.After(0, {}, next).size(), 1000u);
  EXPECT_EQ(next, 1200u);
  EXPECT_TRUE(log.After(next, {}, next).empty());
  const auto last = log.After(1198, {}, next);
  ASSERT_EQ(last.size(), 2u);
  EXPECT_EQ(last[1].asUInt64(), 1199u);
}

TEST(Home, WritesWhatTheDaemonCanRead) {
  const test::TempFolder folder;
  Home home;
  home.root = ustring(folder.path());
  home.daemon_config = folder / "daemon.conf";
  home.system_filter = folder / "fil'ter";
  home.log_level = folder / "levels";
  std::string error;
  WriteDaemonFiles(home, 4711, "/ca path", error);
  ASSERT_EQ(error, "");
  Config config, levels;
  ASSERT_EQ(config.read(home.daemon_config), 0);
  EXPECT_EQ(config["ui_port"], "4711");
  EXPECT_EQ(config["cert_path"], "/ca path");
  EXPECT_EQ(config["system_filter_path"], home.system_filter);
  EXPECT_EQ(levels.read(home.log_level), 0);
  BlackList2 filter;
  EXPECT_EQ(filter.Load(home.system_filter), 0);
  EXPECT_NE(filter.TestFilePath("/a/Thumbs.db"), 0);
  EXPECT_NE(filter.TestFilePath("/a/~$letter.doc"), 0);
  EXPECT_EQ(filter.TestFilePath("/a/letter.doc"), 0);

  home.log_level = folder / "it's \"quoted\"";
  WriteDaemonFiles(home, 4711, "", error);
  EXPECT_NE(error, "");
}

}  // namespace
}  // namespace tolven::ctl
