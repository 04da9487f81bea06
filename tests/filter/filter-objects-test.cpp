#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "lib/black-list2.h"
#include "lib/force-hash-check-list-cpp.h"
#include "lib/policy.h"
#include "lib/white-list-cpp.h"
#include "platform/forwarding-files.h"
#include "platform/forwarding-system.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

TEST(FilterObjects, EditsTakeTheKeysOfTheirSection) {
  BlackList2 list;
  {
    const FilterGuard filter(list);
    const std::uint64_t number = 3;
    const ustring text = "abc", same = "ABC";
    // Which of the ten keys are served, by section and operation.
    const auto served = [](auto operation) {
      std::string keys;
      for (int key = BlackList2::FILTER_KEY_CHAR; key <= BlackList2::FILTER_KEY_FILE_SIZE; ++key) {
        const int result = operation(static_cast<BlackList2::FilterKey>(key));
        keys += result == 0 ? std::to_string(key) : result == -1 ? "-" : "?";
      }
      return keys;
    };
    using B = BlackList2;
    CommonSection* const common = &filter->Common;
    FileSection* const file = &filter->File;
    DirectorySection* const folder = &filter->Directory;
    for (const ustring& value : {text, same}) {
      EXPECT_EQ(served([&](auto key) { return B::InsertFilter(common, key, value); }),
                "0123--6---");
      EXPECT_EQ(served([&](auto key) { return B::InsertFilter(file, key, value); }), "012345----");
      EXPECT_EQ(served([&](auto key) { return B::InsertFilter(folder, key, value); }),
                "0123------");
    }
    EXPECT_EQ(served([&](auto key) { return B::InsertFilter(common, key, number); }), "-------78-");
    EXPECT_EQ(served([&](auto key) { return B::InsertFilter(file, key, number); }), "---------9");
    EXPECT_EQ(B::InsertFilter(&filter->Version, 1, 4), 0);
    // Present in another case: not added again; the characters are replaced.
    EXPECT_EQ(common->black_dir_prefix.set, std::vector<std::string>{"abc"});
    EXPECT_EQ(file->black_glob.set, std::vector<std::string>{"abc"});
    EXPECT_EQ(file->black_ext.set, std::vector<std::string>{"abc"});
    EXPECT_EQ(folder->black_suffix.set, std::vector<std::string>{"abc"});
    EXPECT_EQ(common->black_char.str, "ABC");
    EXPECT_EQ(common->max_length * 10 + common->max_path, 33U);

    EXPECT_EQ(served([&](auto key) { return B::RemoveFilter(common, key, same); }), "-123--6---");
    EXPECT_EQ(served([&](auto key) { return B::RemoveFilter(file, key, same); }), "-12345----");
    EXPECT_TRUE(common->black_name.set.empty() && file->black_prefix.set.empty());
  }
  EXPECT_EQ(list.GetMajorVersion() * 10 + list.GetMinorVersion(), 14);
  EXPECT_EQ(list.TestFilePath("/x/abcd"), -265);
  EXPECT_EQ(list.TestDirectoryPath("/abc"), -773);
}

TEST(FilterObjects, LoadReplacesAndAFailedLoadEmpties) {
  const test::TempFolder folder;
  const ustring path = folder / "filter", second = folder / "second";
  test::WriteFile(path,
                  "[Version]\nmajor=1\n[File]\nblack_ext=\"tmp\"\nmax_size=5\n"
                  "[Common]\nmax_path=9\n");
  BlackList2 list;
  ASSERT_EQ(list.Load(path), 0);
  ASSERT_EQ(list.Load(path), 0);
  const BlackList2 copy(list);
  ASSERT_EQ(list.Write(second), 0);
  test::WriteFile(path, "[File]\nunknown=1\nblack_ext=\"tmp\"\n");
  EXPECT_EQ(list.Load(path), -1);
  EXPECT_EQ(list.TestFilePath("/a.tmp"), 0);
  EXPECT_EQ(list.GetMajorVersion(), 0);

  EXPECT_EQ(copy.TestFilePath("/a.tmp"), -518);
  EXPECT_EQ(copy.TestFileSize(6), -523);
  EXPECT_EQ(copy.TestFullPathSize(10), -266);
  // The root, whichever way it is spelled.
  EXPECT_EQ(copy.TestFilePath("") | copy.TestDirectoryPath("") | copy.TestDirectoryPath("/"), 0);
  ASSERT_EQ(list.Load(second), 0);
  EXPECT_EQ(list.TestFilePath("/a.tmp"), -518);
  list = BlackList2();
  EXPECT_EQ(list.TestFilePath("/a.tmp"), 0);
  list = copy;
  EXPECT_EQ(list.TestFilePath("/a.tmp"), -518);
  EXPECT_EQ(list.GetMajorVersion(), 1);
  list.Clear();
  EXPECT_EQ(list.TestFilePath("/a.tmp"), 0);

  WhiteListCpp white;
  ForceHashCheckListCpp force;
  test::WriteFile(path, "[File]\nwhite_ext=\"txt\"\n");
  test::WriteFile(second, "[File]\nforce_hash_ext=\"mdb\"\n");
  EXPECT_EQ(white.Load(path) | force.Load(second), 0);
  EXPECT_EQ(white.GetWhiteList()->File.white_ext.set.size(), 1U);
  EXPECT_EQ(white.Test("a.TXT"), 0);
  EXPECT_EQ(force.Test("a.MDB"), 1);
  white.Clear();
  EXPECT_EQ(force.Load(path), -1);
  EXPECT_EQ(white.Test("a.txt"), -1);
  EXPECT_EQ(force.Test("a.mdb"), 0);
}

// Tests that run while the rules change see one set of rules or the other.
TEST(FilterObjects, ThreadsTestWhileRulesAreLoaded) {
  const test::TempFolder folder;
  const ustring names = folder / "names", extensions = folder / "extensions";
  test::WriteFile(names, "[Version]\nmajor=1\nminor=1\n[File]\nblack_name=\"a.b\"\n");
  test::WriteFile(extensions, "[Version]\nmajor=1\nminor=2\n[File]\nblack_ext=\"b\"\n");
  BlackList2 list;
  WhiteListCpp white;
  ASSERT_EQ(list.Load(names), 0);
  std::atomic<bool> done = false;
  std::atomic<int> wrong = 0, seen = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!done) {
        const int result = list.TestFilePath("/x/a.b");
        if (result != -517 && result != -518) ++wrong;
        if (list.GetMajorVersion() != 1) ++wrong;
        BlackList2 copy(list);
        copy = list;
        const FilterGuard guard(list);
        if (guard->File.black_name.set.size() + guard->File.black_ext.set.size() != 1) ++wrong;
        seen |= guard->Version.minor;
        if (white.Test("a") == 0) ++wrong;
      }
    });
  }
  for (int round = 0; round < 200 || seen != 3; ++round) {
    EXPECT_EQ(list.Load(round % 2 == 0 ? extensions : names), 0);
    white.Clear();
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
  platform::Status LocalAppData(ustring& path) override {
    path = data_;
    return {};
  }

 private:
  const ustring data_;
};

// Gives every node the attributes at hand.
class FakeFiles : public platform::ForwardingFiles {
 public:
  FakeFiles() : ForwardingFiles(platform::files()) { platform::SetFiles(this); }
  ~FakeFiles() override { platform::SetFiles(nullptr); }
  platform::Status Stat(const ustring&, platform::NodeInfo& node) override {
    ++looks;
    node = info;
    return status;
  }
  platform::NodeInfo info;
  platform::Status status;
  int looks = 0;
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
  std::filesystem::create_symlink((folder / "file").str(), (folder / "link").str());
  const struct {
    const char* name;
    bool node, root;
  } cases[] = {
      {"file", true, true},
      {"data", true, true},
      {"missing", true, false},
      {"missing/below", true, false},
      {"file/below", true, false},
      {"link", false, true},
      {"data/Tolvenhub", false, true},
      {"data/Tolvenhub/x", false, false},
      {"data/TolvenhubOld", false, false},
      {"data/Temp", false, false},
      {"data/Tol", true, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(IsValidNode(folder / c.name), c.node) << c.name;
    EXPECT_EQ(IsValidSyncFolder(folder / c.name), c.root) << c.name;
  }
  EXPECT_FALSE(IsValidNode("/dev/null"));
  EXPECT_TRUE(isMatchPrefix("/a/Data", "/a/Database"));
  EXPECT_FALSE(isMatchPrefix("/a/Data", "/a/Dat"));
}

TEST(Policy, AttributesAndDrives) {
  using platform::DriveKind;
  using platform::ErrorKind;
  FakeFiles files;
  FakeVolumes volumes;
  EXPECT_TRUE(IsValidNode("/x"));
  for (bool platform::NodeInfo::*attribute :
       {&platform::NodeInfo::offline, &platform::NodeInfo::system,
        &platform::NodeInfo::temporary}) {
    files.info.*attribute = true;
    EXPECT_FALSE(IsValidNode("/x"));
    EXPECT_TRUE(IsValidSyncFolder("/x"));
    files.info.*attribute = false;
  }
  files.info.hidden = files.info.read_only = true;
  EXPECT_TRUE(IsValidNode("/x"));
  files.status = {ErrorKind::kAccessDenied, 13};
  EXPECT_FALSE(IsValidNode("/x"));

  files.status = {};
  files.looks = 0;
  for (const DriveKind kind : {DriveKind::kOptical, DriveKind::kRamDisk}) {
    volumes.kind = kind;
    EXPECT_FALSE(IsValidSyncFolder("/x"));
  }
  EXPECT_EQ(files.looks, 0);
  for (const DriveKind kind : {DriveKind::kUnknown, DriveKind::kRemovable, DriveKind::kRemote}) {
    volumes.kind = kind;
    EXPECT_TRUE(IsValidSyncFolder("/x"));
  }
}

}  // namespace
}  // namespace tolven
