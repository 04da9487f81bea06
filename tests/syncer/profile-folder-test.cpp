#include "client/core/profile-folder.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;

class ProfileFolderTest : public ::testing::Test {
 protected:
  ProfileFolderTest() { fs::create_directory(path_.str()); }
  ~ProfileFolderTest() override { platform::SetFiles(nullptr); }

  ustring Receive(const char* name) {
    const ustring file = folder_ / name;
    test::WriteFile(file, name);
    return file;
  }
  std::string Content(const char* name) const { return test::ReadFile(path_ + "/" + name); }
  bool HasLeftOvers() const {
    return fs::exists(path_.str() + ".tmp") || fs::exists(path_.str() + ".bak");
  }

  test::TempFolder folder_;
  const ustring path_ = folder_ / "profiles";
};

TEST_F(ProfileFolderTest, ReplacesTheWholeFolderOrNothing) {
  test::WriteFile(path_ + "/old", "old");
  platform::FaultPlan plan;
  platform::ForwardingFiles files(platform::files(), plan.hook());
  platform::SetFiles(&files);
  for (unsigned nth = 1;; ++nth) {
    const ustring a = Receive("a"), b = Receive("b");
    plan.Clear();
    plan.FailNth(nth, platform::ErrorKind::kAccessDenied);
    const int result = ProfileFolder(path_).Replace({{"a", a}, {"b", b}});
    const bool failed = plan.failures() != 0;
    plan.Clear();
    SCOPED_TRACE(nth);
    // Whatever happened: one of the two sets stands once a session begins with it.
    ASSERT_EQ(ProfileFolder(path_).Restore(), 0);
    EXPECT_FALSE(HasLeftOvers());
    const bool is_new = Content("a") == "a" && Content("b") == "b" && Content("old").empty();
    const bool is_old = Content("old") == "old" && Content("a").empty();
    ASSERT_TRUE(is_new || is_old);
    EXPECT_TRUE(result != 0 || is_new);
    if (!failed) break;
    fs::remove_all(path_.str());
    fs::create_directory(path_.str());
    test::WriteFile(path_ + "/old", "old");
  }
  EXPECT_EQ(Content("a"), "a");
}

TEST_F(ProfileFolderTest, BringsBackWhatACrashLeftAside) {
  test::WriteFile(path_ + "/old", "old");
  fs::rename(path_.str(), path_.str() + ".bak");
  fs::create_directory(path_.str() + ".tmp");
  EXPECT_EQ(ProfileFolder(path_).Restore(), 0);
  EXPECT_EQ(Content("old"), "old");
  EXPECT_FALSE(HasLeftOvers());
  ProfileSet set;
  EXPECT_EQ(ProfileFolder(path_).Load(1, set), 0);
  EXPECT_EQ(set.size(), 1U);
}

}  // namespace
}  // namespace tolven
