#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "lib/black-list2.h"
#include "lib/force-hash-check-list-cpp.h"
#include "lib/policy.h"
#include "lib/white-list-cpp.h"
#include "platform/forwarding-files.h"
#include "platform/forwarding-system.h"
#include "support/system.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

TEST(FilterObjects, EditsTakeTheKeysOfTheirSection) {
  using B = BlackList2;
  B list;
  {
    const FilterGuard filter(list);
    auto& [version, common_section, file_section, folder_section, ea] = *filter;
    // Lambdas cannot take what a structured binding names.
    auto& common = common_section;
    auto& file = file_section;
    auto& folder = folder_section;
    ustring text = "abc";
    const std::uint64_t number = 3;
    // Which of the ten keys each operation serves.
    const std::vector<std::pair<std::string, std::function<int(B::FilterKey)>>> operations = {
        {"0123--6---", [&](auto key) { return B::InsertFilter(&common, key, text); }},
        {"012345----", [&](auto key) { return B::InsertFilter(&file, key, text); }},
        {"0123------", [&](auto key) { return B::InsertFilter(&folder, key, text); }},
        {"-------78-", [&](auto key) { return B::InsertFilter(&common, key, number); }},
        {"---------9", [&](auto key) { return B::InsertFilter(&file, key, number); }},
        {"-123--6---", [&](auto key) { return B::RemoveFilter(&common, key, "aBc"); }},
        {"-12345----", [&](auto key) { return B::RemoveFilter(&file, key, "aBc"); }}};
    const auto expect_served = [&](std::size_t operation) {
      std::string keys;
      for (int key = B::FILTER_KEY_CHAR; key <= B::FILTER_KEY_FILE_SIZE; ++key) {
        const int result = operations[operation].second(static_cast<B::FilterKey>(key));
        keys += result == 0 ? std::to_string(key) : result == -1 ? "-" : "?";
      }
      EXPECT_EQ(keys, operations[operation].first);
    };
    for (const std::size_t insertion : {0U, 1U, 2U, 3U, 4U}) expect_served(insertion);
    text = "ABC";  // in another case it is not added again
    for (const std::size_t insertion : {0U, 1U, 2U}) expect_served(insertion);
    for (const auto* set : {&common.black_dir_prefix, &file.black_glob, &folder.black_suffix}) {
      EXPECT_EQ(set->set, std::vector<std::string>{"abc"});
    }
    EXPECT_EQ(common.black_char.str, "ABC");
    for (const std::size_t removal : {5U, 6U}) expect_served(removal);
    EXPECT_TRUE(common.black_name.set.empty() && file.black_prefix.set.empty());
    EXPECT_EQ(B::InsertFilter(&version, 1, 4), 0);
  }
  EXPECT_EQ(list.GetMajorVersion() * 10 + list.GetMinorVersion(), 14);
  EXPECT_EQ(list.TestFilePath("/x/abcd"), -265);
}

TEST(FilterObjects, LoadReplacesAndAFailedLoadEmpties) {
  const test::TempFolder folder;
  const ustring path = folder / "filter", second = folder / "second";
  test::WriteFile(path, "[Version]\nmajor=1\n[File]\nblack_ext=\"tmp\"\nmax_size=5\n");
  BlackList2 list;
  ASSERT_EQ(list.Load(path), 0);
  const BlackList2 copy(list);
  ASSERT_EQ(list.Write(second), 0);
  test::WriteFile(path, "[File]\nunknown=1\nblack_ext=\"tmp\"\n");
  EXPECT_EQ(list.Load(path), -1);
  EXPECT_EQ(list.TestFilePath("/a.tmp") | list.GetMajorVersion(), 0);
  EXPECT_EQ(copy.TestFileSize(6), -523);
  // The root, whichever way it is spelled.
  EXPECT_EQ(copy.TestFilePath("") | copy.TestDirectoryPath("") | copy.TestDirectoryPath("/"), 0);
  ASSERT_EQ(list.Load(second), 0);
  EXPECT_EQ(list.TestFilePath("/a.tmp"), -518);
  list.Clear();
  EXPECT_EQ(list.TestFilePath("/a.tmp"), 0);
  list = copy;
  EXPECT_EQ(list.TestFilePath("/a.tmp"), -518);
  EXPECT_EQ(list.GetMajorVersion(), 1);

  WhiteListCpp white;
  ForceHashCheckListCpp force;
  test::WriteFile(path, "[File]\nwhite_ext=\"txt\"\n");
  test::WriteFile(second, "[File]\nforce_hash_ext=\"mdb\"\n");
  EXPECT_EQ(white.Load(path) | force.Load(second), 0);
  EXPECT_EQ(white.Test("a.TXT") * 10 + force.Test("a.MDB"), 1);
  white.Clear();
  EXPECT_EQ(force.Load(path), -1);
  EXPECT_EQ(white.Test("a.txt") * 10 + force.Test("a.mdb"), -10);
}

// Tests that run while the rules change see one set of rules or the other.
TEST(FilterObjects, ThreadsTestWhileRulesAreLoaded) {
  const test::TempFolder folder;
  const ustring names = folder / "names", extensions = folder / "extensions";
  test::WriteFile(names, "[Version]\nmajor=1\nminor=1\n[File]\nblack_name=\"a.b\"\n");
  test::WriteFile(extensions, "[Version]\nmajor=1\nminor=2\n[File]\nblack_ext=\"b\"\n");
  BlackList2 list;
  ASSERT_EQ(list.Load(names), 0);
  std::atomic<bool> done = false;
  std::atomic<int> wrong = 0, seen = 0;
  const auto look = [&] {
    while (!done) {
      const int result = list.TestFilePath("/x/a.b");
      BlackList2 copy(list);
      copy = list;
      const FilterGuard guard(list);
      wrong += result != -517 && result != -518;
      wrong += guard->File.black_name.set.size() + guard->File.black_ext.set.size() != 1;
      seen |= guard->Version.minor;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) threads.emplace_back(look);
  for (int round = 0; round < 200 || seen != 3; ++round) {
    EXPECT_EQ(list.Load(round % 2 == 0 ? extensions : names), 0);
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

class FakeIdentity : public platform::ForwardingIdentity {
 public:
  explicit FakeIdentity(ustring data)
      : ForwardingIdentity(platform::identity()), data_(std::move(data)) {
    platform::SetIdentity(this);
  }
  ~FakeIdentity() override { platform::SetIdentity(nullptr); }
  platform::Status LocalAppData(ustring& path) override { return path = data_, platform::Status{}; }

 private:
  const ustring data_;
};

// Gives every node the attributes at hand.
class FakeFiles : public platform::ForwardingFiles {
 public:
  FakeFiles() : ForwardingFiles(platform::files()) { platform::SetFiles(this); }
  ~FakeFiles() override { platform::SetFiles(nullptr); }
  platform::Status Stat(const ustring&, platform::NodeInfo& node) override {
    node = info;
    return status;
  }
  platform::NodeInfo info;
  platform::Status status;
};

class FakeVolumes : public platform::ForwardingVolumes {
 public:
  FakeVolumes() : ForwardingVolumes(platform::volumes()) { platform::SetVolumes(this); }
  ~FakeVolumes() override { platform::SetVolumes(nullptr); }
  platform::DriveKind KindOf(const ustring&) override { return kind; }
  platform::DriveKind kind = platform::DriveKind::kFixed;
};

TEST(Policy, NodesOfTheRealDisk) {
  const test::TempFolder folder;
  const FakeIdentity identity(folder / "data");
  std::filesystem::create_directories((folder / "data/Tolvenhub").str());
  test::WriteFile(folder / "file", "");
  const bool has_link = test::MakeLink((folder / "file").str(), (folder / "link").str());
  const struct {
    const char* name;
    bool node, root;
  } cases[] = {
      {"file", true, true},           {"data", true, true},
      {"missing/below", true, false}, {"file/below", true, false},
      {"link", false, true},          {"data/Tolvenhub", false, true},
      {"data/Temp", false, false},    {"data/TolvenhubOld/x", false, false},
      {"data/Tol", true, false},      {"missing", true, false},
  };
  for (const auto& c : cases) {
    if (!has_link && c.name == std::string("link")) continue;
    EXPECT_EQ(IsValidNode(folder / c.name), c.node) << c.name;
    EXPECT_EQ(IsValidSyncFolder(folder / c.name), c.root) << c.name;
  }
  EXPECT_TRUE(test::kDevice == nullptr || !IsValidNode(test::kDevice));
}

TEST(Policy, AttributesAndDrives) {
  using platform::NodeInfo;
  FakeFiles files;
  FakeVolumes volumes;
  files.info.hidden = files.info.read_only = true;
  EXPECT_TRUE(IsValidNode("/x"));
  for (bool NodeInfo::*attribute : {&NodeInfo::offline, &NodeInfo::system, &NodeInfo::temporary}) {
    files.info.*attribute = true;
    EXPECT_TRUE(!IsValidNode("/x") && IsValidSyncFolder("/x"));
    files.info.*attribute = false;
  }
  for (const auto kind : {platform::DriveKind::kOptical, platform::DriveKind::kRamDisk}) {
    volumes.kind = kind;
    EXPECT_FALSE(IsValidSyncFolder("/x"));
  }
  volumes.kind = platform::DriveKind::kRemote;
  EXPECT_TRUE(IsValidSyncFolder("/x"));
  files.status = {platform::ErrorKind::kAccessDenied, 13};
  EXPECT_FALSE(IsValidNode("/x") || IsValidSyncFolder("/x"));
  EXPECT_EQ(LookAtNode("/x"), NodeState::kUnknown);
}

}  // namespace
}  // namespace tolven
