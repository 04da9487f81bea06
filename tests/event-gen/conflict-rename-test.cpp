#include "client/core/conflict-rename.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <set>

#include "platform/fake-clock.h"
#include "support/system.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

class ConflictRenameTest : public testing::Test {
 protected:
  ConflictRenameTest() {
    test::SetVariable("TZ", "UTC");
    tzset();
    platform::SetClock(&clock_);
  }
  ~ConflictRenameTest() override { platform::SetClock(nullptr); }

  void Make(const std::string& name) { test::WriteFile(folder_ / name, name); }
  std::set<std::string> Names() {
    std::set<std::string> names;
    for (const auto& item : std::filesystem::directory_iterator(folder_.path())) {
      names.insert(item.path().filename().string());
    }
    return names;
  }

  test::TempFolder folder_;
  platform::FakeClock clock_{1'394'029'807};
};

TEST_F(ConflictRenameTest, PutsTheSuffixInFrontOfTheExtension) {
  const auto named = [](const char* path) { return GenerateNewFileName(path, "p/c", "T").str(); };
  const std::string suffix = "_p-c_Mar-05-143007-2014_T";
  EXPECT_EQ(named("/x/report.txt"), "/x/report" + suffix + ".txt");
  EXPECT_EQ(named("/x/plain"), "/x/plain" + suffix);
  EXPECT_EQ(named("/x/dot."), "/x/dot." + suffix);
  EXPECT_EQ(named("/b.c/d"), "/b.c/d" + suffix);
  EXPECT_EQ(named("alone.txt"), "alone.txt" + suffix);

  for (int i = 0; i < 3; ++i) {
    Make("f.txt");
    EXPECT_EQ(ConflictRename(folder_ / "f.txt", "pc", "Conflict"), 0);
  }
  EXPECT_EQ(Names(), (std::set<std::string>{"f_pc_Mar-05-143007-2014_Conflict.txt",
                                            "f_pc_Mar-05-143007-2014_Conflict_1.txt",
                                            "f_pc_Mar-05-143007-2014_Conflict_2.txt"}));
  EXPECT_LT(ConflictRename(folder_ / "none", "pc", "Conflict"), 0);
}

TEST_F(ConflictRenameTest, LongNamesFitTheDisk) {
  std::string name;
  while (name.size() < 250) name += "\xC3\xA4";
  for (const std::string& long_name : {name + ".txt", "." + name, std::string(255, 'x')}) {
    Make(long_name);
    EXPECT_EQ(ConflictRename(folder_ / long_name, std::string(300, 'c'), "Conflict"), 0);
  }
  for (const std::string& made : Names()) EXPECT_TRUE(ustring::is_valid(made)) << made;
  EXPECT_EQ(Names().size(), 3u);
}

TEST_F(ConflictRenameTest, TakesBlanksOff) {
  Make("x ");
  if (!Names().contains("x ")) GTEST_SKIP() << "no blanks at the end of names here";
  std::filesystem::remove((folder_ / "x ").str());
  const auto rename = [this](const char* name, const char* tag) {
    Make(name);
    return WhiteSpaceConflictRename(folder_ / name, "pc", tag);
  };
  EXPECT_EQ(rename("n  ", "WhiteSpaceConflict"), 0);
  EXPECT_EQ(rename("n ", "WhiteSpaceConflict"), 0);
  EXPECT_EQ(rename("m ", "Conflict"), 0);
  EXPECT_EQ(rename("  ", "Conflict"), 0);
  EXPECT_EQ(Names(), (std::set<std::string>{"n", "n_pc_Mar-05-143007-2014_WhiteSpaceConflict",
                                            "m_pc_Mar-05-143007-2014_Conflict",
                                            "  _pc_Mar-05-143007-2014_Conflict"}));
  EXPECT_EQ(test::ReadFile(folder_ / "n"), "n  ");
}

}  // namespace
}  // namespace tolven
