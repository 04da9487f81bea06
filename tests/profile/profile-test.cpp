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

shared_pointer<Profile> WithSum(const char* md5) {
  auto profile = std::make_shared<Profile>();
  profile->SetMD5(md5);
  return profile;
}

ustring HashOf(ProfileManager& manager, std::uint64_t user) {
  const ProfileManagerGuard hold(manager);
  return manager.GetHash(user);
}

int AddJson(ProfileManager& manager, std::uint64_t id, const char* name, const std::string& text,
            const std::vector<std::uint64_t>& users) {
  const ProfileManagerGuard hold(manager);
  return manager.AddProfileByContext(id, name, text, users);
}

TEST(ProfileSet, RefusesByTheFirstThatDoesAndHashesInAnyOrder) {
  const test::TempFolder folder;
  const ustring one = folder / "one", two = folder / "two", broken = folder / "broken";
  test::WriteFile(one, "[File]\nblack_ext=\"x\"\nmax_size=10\n[Common]\nmax_path=20\n");
  test::WriteFile(two,
                  "[File]\nblack_name=\"a.x\",\"b\"\nmax_size=5\n[Directory]\nblack_name=\"d\"");
  test::WriteFile(broken, "[File]\nblack_ext=\"y\"\nno key\n");
  ProfileSet set;
  EXPECT_EQ(set.TestFilePath("/a.x") | set.TestFileSize(UINT64_MAX), 0);
  EXPECT_EQ(set.GetHash(), "");
  std::vector<shared_pointer<Profile>> loaded;
  for (const ustring& path : {broken, one, two, folder / "missing"}) {
    set.Add(std::make_shared<Profile>());
    EXPECT_EQ(set[set.size() - 1]->LoadFromFile(path), 0);
    EXPECT_EQ(set[set.size() - 1]->GetPath(), path);
    loaded.push_back(set[set.size() - 1]);
  }
  EXPECT_EQ(set.TestFilePath("/a.x"), -518);
  EXPECT_EQ(set.TestFilePath("/b"), -517);
  EXPECT_EQ(set.TestFilePath("/a.y"), 0);
  EXPECT_EQ(set.TestDirectoryPath("/d"), -773);
  EXPECT_EQ(set.TestFileSize(6), -523);
  EXPECT_EQ(set.TestFileSize(5), 0);
  EXPECT_EQ(set.TestFullPathSize(21), -266);
  // The sum is that of the content, parsed or not, and empty without one.
  EXPECT_EQ(set[0]->GetMd5(), HashMD5(test::ReadFile(broken)));
  EXPECT_EQ(set[3]->GetMd5(), "");
  const std::string large(40'000, '#');
  test::WriteFile(one, large);
  loaded[1]->LoadFromFile(one);
  EXPECT_EQ(loaded[1]->GetMd5(), HashMD5(large));
  EXPECT_EQ(set.TestFilePath("/c.x"), 0);

  ProfileSet forth, back;
  for (const char* md5 : {"b", "a"}) forth.Add(WithSum(md5));
  for (const char* md5 : {"a", "b"}) back.Add(WithSum(md5));
  EXPECT_EQ(forth.GetHash(), "ab");
  EXPECT_EQ(back.GetHash(), "ab");
}

TEST(ProfileManager, ALoadForgetsAllUsersAndLeavesTheSetsHandedOut) {
  const test::TempFolder folder;
  for (const char* name : {"1", "2", "empty"})
    std::filesystem::create_directory((folder / name).str());
  test::WriteFile(folder / "1/a", "[File]\nblack_ext=\"x\"\n");
  test::WriteFile(folder / "1/b", "[File]\nblack_ext=\"y\"\n");
  test::WriteFile(folder / "2/c", "[File]\nblack_ext=\"z\"\n");
  ProfileManager manager;
  ASSERT_EQ(manager.Initialize("", false), 0);
  ProfileSet first, second, none;
  ASSERT_EQ(manager.LoadProfiles(1, folder / "1"), 0);
  ASSERT_EQ(manager.GetUserProfileSet(1, first), 0);
  EXPECT_EQ(first.size(), 2U);
  EXPECT_EQ(first[0]->GetId() + first[1]->GetId(), 1U);
  EXPECT_EQ(HashOf(manager, 1), first.GetHash());
  ASSERT_EQ(manager.LoadProfiles(2, folder / "2"), 0);
  ASSERT_EQ(manager.GetUserProfileSet(2, second), 0);
  EXPECT_EQ(manager.GetUserProfileSet(1, none), -1);
  EXPECT_EQ(HashOf(manager, 1), "");
  EXPECT_EQ(first.TestFilePath("/a.x"), -518);
  EXPECT_EQ(first.TestFilePath("/a.z"), 0);
  EXPECT_EQ(second.TestFilePath("/a.z"), -518);

  // What cannot be opened changes nothing; an empty folder gives no entry.
  for (const char* bad : {"missing", "2/c"}) {
    EXPECT_EQ(manager.LoadProfiles(3, folder / bad), -1) << bad;
    EXPECT_EQ(manager.GetUserProfileSet(2, none), 0);
  }
  EXPECT_EQ(manager.LoadProfiles(2, folder / "empty"), 0);
  EXPECT_EQ(manager.GetUserProfileSet(2, none), -1);

  ProfileSet set = first;
  EXPECT_EQ(LoadProfileSet(2, folder / "2", set), 0);
  EXPECT_EQ(set.GetHash(), second.GetHash());
  EXPECT_EQ(LoadProfileSet(2, folder / "missing", set), -1);
  EXPECT_EQ(set.size(), 0U);
  set = first;
  EXPECT_EQ(LoadProfileSet(2, folder / "empty", set), 0);
  EXPECT_EQ(set.size(), 0U);
}

TEST(ProfileManager, AWalkThatFailsKeepsWhatItFound) {
  const test::TempFolder folder;
  for (const char* name : {"/a", "/b"}) test::WriteFile(folder.path() + name, "[File]\n");
  int reads = 0;
  platform::ForwardingFiles files(platform::files(), [&](const char* call) -> platform::Status {
    // "." and ".." come among the others, so at least one of three is a profile.
    if (std::string(call) != "Next" || ++reads < 4) return {};
    return {platform::ErrorKind::kOther, 5};
  });
  ProfileManager manager;
  ProfileSet set;
  platform::SetFiles(&files);
  EXPECT_EQ(manager.LoadProfiles(1, folder.path()), 0);
  platform::SetFiles(nullptr);
  EXPECT_EQ(manager.GetUserProfileSet(1, set), 0);
  EXPECT_GE(set.size(), 1U);
}

TEST(ProfileManager, JsonBecomesAFilterFileThatGoesWithTheManager) {
  const test::TempFolder folder;
  const ustring place = folder / "tmp";
  const auto files = [&] {
    return std::distance(std::filesystem::directory_iterator(place.str()), {});
  };
  ProfileSet set;
  {
    ProfileManager manager;
    EXPECT_EQ(AddJson(manager, 1, "n", "{}", {7}), -1);
    ASSERT_EQ(manager.Initialize(place, true), 0);
    EXPECT_EQ(AddJson(manager, 5, "office",
                      R"({"black_path_prefix_selective_sync": ["/p"], "filtered_extensions": ["x"],
                      "filtered_names": ["n", "\u00e4"], "filtered_max_upload_size": 4294967295,
                      "other": [1]})",
                      {7, 8}),
              0);
    EXPECT_EQ(AddJson(manager, 6, "", R"({"filtered_max_upload_size": 0})", {8}), 0);
    for (const std::string& bad :
         {std::string("{"), std::string("[]"), std::string("7"), std::string(5000, '['),
          std::string(R"({"filtered_names": "n"})"), std::string(R"({"filtered_names": [[]]})"),
          std::string(R"({"filtered_names": [""]})"),
          std::string(R"({"filtered_max_upload_size": -1})"),
          std::string(R"({"filtered_max_upload_size": 4294967296})"),
          std::string(R"({"filtered_max_upload_size": "1"})")}) {
      EXPECT_EQ(AddJson(manager, 9, "", bad, {9}), -1) << bad.substr(0, 60);
    }
    EXPECT_EQ(HashOf(manager, 9), "");
    EXPECT_EQ(HashOf(manager, 7).length(), 32U);
    EXPECT_EQ(HashOf(manager, 8).length(), 64U);
    EXPECT_GE(files(), 2);
    EXPECT_EQ(manager.GetUserProfileSet(7, set), 0);
  }
  EXPECT_EQ(files(), 0);
  EXPECT_EQ(set[0]->GetName(), "office");
  EXPECT_EQ(set[0]->GetId(), 5U);
  EXPECT_EQ(set.TestDirectoryPath("/p/q"), -264);
  EXPECT_EQ(set.TestFilePath("/a.x"), -518);
  EXPECT_EQ(set.TestFilePath("/\xC3\xA4"), -517);
  EXPECT_EQ(set.TestFileSize(4294967295), 0);
  EXPECT_EQ(set.TestFileSize(4294967296), -523);
}

// Sessions that load at once get their own profiles, while others test theirs.
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
        if (LoadProfileSet(static_cast<std::uint64_t>(user), place, set) != 0) ++wrong;
        if (set.TestFilePath("/" + std::to_string(user)) != -517) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace tolven
