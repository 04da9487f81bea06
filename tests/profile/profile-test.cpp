#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "lib/profile-manager.h"
#include "lib/utility.h"
#include "platform/forwarding-files.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

ustring HashOf(ProfileManager& manager, std::uint64_t user) {
  const ProfileManagerGuard hold(manager);
  return manager.GetHash(user);
}

int AddJson(ProfileManager& manager, std::uint64_t id, const std::string& text,
            const std::vector<std::uint64_t>& users) {
  const ProfileManagerGuard hold(manager);
  return manager.AddProfileByContext(id, "office", text, users);
}

TEST(ProfileSet, RefusesByTheFirstThatDoesAndHashesInAnyOrder) {
  const test::TempFolder folder;
  const ustring one = folder / "one", two = folder / "two", broken = folder / "broken";
  test::WriteFile(one, "[File]\nblack_ext=\"x\"\n[Common]\nmax_path=20\n");
  test::WriteFile(two,
                  "[File]\nblack_name=\"a.x\",\"b\"\nmax_size=5\n[Directory]\nblack_name=\"d\"");
  test::WriteFile(broken, "[File]\nblack_ext=\"y\"\nno key\n");
  ProfileSet set;
  EXPECT_EQ(set.TestFilePath("/a.x") | set.TestFileSize(UINT64_MAX), 0);
  for (const ustring& path : {broken, one, two, folder / "missing"}) {
    set.Add(std::make_shared<Profile>());
    EXPECT_EQ(set[set.size() - 1]->LoadFromFile(path), 0);
  }
  EXPECT_EQ(set.TestFilePath("/a.x"), -518);
  EXPECT_EQ(set.TestFilePath("/b"), -517);
  EXPECT_EQ(set.TestFilePath("/a.y"), 0);
  EXPECT_EQ(set.TestDirectoryPath("/d"), -773);
  EXPECT_EQ(set.TestFileSize(6), -523);
  EXPECT_EQ(set.TestFullPathSize(21), -266);
  // The sum is that of the content, parsed or not, and empty without one.
  EXPECT_EQ(set[0]->GetMd5(), HashMD5(test::ReadFile(broken)));
  EXPECT_EQ(set[3]->GetMd5(), "");

  for (const std::string order : {"ab", "ba"}) {
    ProfileSet pair;
    for (const char md5 : order) {
      pair.Add(std::make_shared<Profile>());
      pair[pair.size() - 1]->SetMD5(std::string(1, md5));
    }
    EXPECT_EQ(pair.GetHash(), "ab");
  }
}

TEST(ProfileManager, ALoadForgetsAllUsersAndLeavesTheSetsHandedOut) {
  const test::TempFolder folder;
  for (const char* name : {"1", "2", "empty"})
    std::filesystem::create_directory((folder / name).str());
  test::WriteFile(folder / "1/a", "[File]\nblack_ext=\"x\"\n");
  test::WriteFile(folder / "1/b", "[File]\nblack_ext=\"y\"\n");
  test::WriteFile(folder / "2/c", "[File]\nblack_ext=\"z\"\n");
  ProfileManager manager;
  ProfileSet first, second, none;
  ASSERT_EQ(manager.LoadProfiles(1, folder / "1"), 0);
  ASSERT_EQ(manager.GetUserProfileSet(1, first), 0);
  EXPECT_EQ(first[0]->GetId() + first[1]->GetId(), 1U);
  EXPECT_EQ(HashOf(manager, 1), first.GetHash());
  ASSERT_EQ(manager.LoadProfiles(2, folder / "2"), 0);
  ASSERT_EQ(manager.GetUserProfileSet(2, second), 0);
  EXPECT_EQ(manager.GetUserProfileSet(1, none), -1);
  EXPECT_EQ(HashOf(manager, 1), "");
  EXPECT_EQ(first.TestFilePath("/a.x"), -518);
  EXPECT_EQ(second.TestFilePath("/a.z"), -518);
  // What cannot be opened changes nothing; an empty folder gives no entry.
  for (const char* bad : {"missing", "2/c"}) {
    EXPECT_EQ(manager.LoadProfiles(3, folder / bad), -1) << bad;
    EXPECT_EQ(manager.GetUserProfileSet(2, none), 0);
  }
  EXPECT_EQ(manager.LoadProfiles(2, folder / "empty"), 0);
  EXPECT_EQ(manager.GetUserProfileSet(2, none), -1);

  for (const auto& [name, result] : {std::pair{"empty", 0}, std::pair{"missing", -1}}) {
    ProfileSet set = first;
    EXPECT_EQ(LoadProfileSet(2, folder / name, set), result);
    EXPECT_EQ(set.size(), 0U);
  }

  // A walk that fails keeps what it found: of three names at least one is not "." or "..".
  int left = 4;
  platform::ForwardingFiles failing(platform::files(), [&left](const char* call) {
    const bool fails = std::string(call) == "Next" && --left == 0;
    return fails ? platform::Status{platform::ErrorKind::kOther, 5} : platform::Status{};
  });
  platform::SetFiles(&failing);
  EXPECT_EQ(manager.LoadProfiles(1, folder / "1"), 0);
  platform::SetFiles(nullptr);
  EXPECT_EQ(manager.GetUserProfileSet(1, none), 0);
}

TEST(ProfileManager, JsonBecomesAFilterFileThatGoesWithTheManager) {
  const test::TempFolder folder;
  const ustring place = folder / "tmp";
  ProfileSet set;
  {
    ProfileManager manager;
    EXPECT_EQ(AddJson(manager, 1, "{}", {7}), -1);  // nowhere to put it
    ASSERT_EQ(manager.Initialize(place, true), 0);
    EXPECT_EQ(AddJson(manager, 5,
                      R"({"black_path_prefix_selective_sync": ["/p"], "filtered_extensions": ["x"],
                      "filtered_names": ["n", "\u00e4"], "filtered_max_upload_size": 4294967295,
                      "other": [1]})",
                      {7, 8}),
              0);
    EXPECT_EQ(AddJson(manager, 6, R"({"filtered_max_upload_size": 0})", {8}), 0);
    for (const std::string bad :
         {"{", "[]", "7", R"({"filtered_names": "n"})", R"({"filtered_names": [[]]})",
          R"({"filtered_names": [""]})", R"({"filtered_max_upload_size": -1})",
          R"({"filtered_max_upload_size": 4294967296})", R"({"filtered_max_upload_size": "1"})"}) {
      EXPECT_EQ(AddJson(manager, 9, bad, {9}), -1) << bad;
    }
    EXPECT_EQ(AddJson(manager, 9, std::string(5000, '['), {9}), -1);
    EXPECT_EQ(HashOf(manager, 9), "");
    EXPECT_EQ(HashOf(manager, 8).length(), 64U);
    EXPECT_FALSE(std::filesystem::is_empty(place.str()));
    EXPECT_EQ(manager.GetUserProfileSet(7, set), 0);
  }
  EXPECT_TRUE(std::filesystem::is_empty(place.str()));
  EXPECT_EQ(set[0]->GetName(), "office");
  EXPECT_EQ(set.TestDirectoryPath("/p/q"), -264);
  EXPECT_EQ(set.TestFilePath("/a.x"), -518);
  EXPECT_EQ(set.TestFilePath("/\xC3\xA4"), -517);
  EXPECT_EQ(set.TestFileSize(4294967295), 0);
  EXPECT_EQ(set.TestFileSize(4294967296), -523);
}

// Sessions that load at once get their own profiles.
TEST(ProfileManager, SessionsLoadAtOnce) {
  const test::TempFolder folder;
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (int user = 0; user < 4; ++user) {
    const ustring place = folder / std::to_string(user);
    std::filesystem::create_directory(place.str());
    test::WriteFile(place + "/p", "[File]\nblack_name=\"" + std::to_string(user) + "\"\n");
    threads.emplace_back([user, place, &wrong] {
      ProfileSet set;
      for (int round = 0; round < 100; ++round) {
        wrong += LoadProfileSet(static_cast<std::uint64_t>(user), place, set) != 0;
        wrong += set.TestFilePath("/" + std::to_string(user)) != -517;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace tolven
