// File operations on a real folder, and what they do when the platform fails them.

#include "lib/file-op.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "platform/trash.h"
#include "platform/volumes.h"
#include "support/system.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;
using platform::ErrorKind;
using platform::Status;
using test::ReadFile;
using test::TempFolder;
using test::WriteFile;

FILE_INFO Look(const ustring& path) {
  FILE_INFO info;
  EXPECT_EQ(FSStat(path, info, true), 0) << path;
  return info;
}

TEST(FileOp, TellsKindsAndAbsence) {
  const TempFolder folder;
  WriteFile(folder / "file", "12345");
  fs::create_directory((folder / "dir").str());
  const bool has_link = test::MakeLink("dir", (folder / "link").str());
  EXPECT_FALSE(Look(folder / "missing").isExist);
  EXPECT_FALSE(Look(folder / "file/below").isExist);
  EXPECT_FALSE(Look("").isExist);
  EXPECT_FALSE(Look(folder / std::string(300, 'n')).isExist);
  EXPECT_EQ(Look(folder / "file").type, FT_FILE);
  EXPECT_EQ(Look(folder / "file").size, 5u);
  EXPECT_EQ(Look(folder / "dir").type, FT_DIR);
  EXPECT_TRUE(!has_link || Look(folder / "link").type == FT_SLINK);
  EXPECT_TRUE(IsFileExist(folder / "file", true));
  EXPECT_FALSE(IsFileExist(folder / "FILE", true));
  EXPECT_FALSE(isFileLocked(folder / "missing", kLockRead));
  EXPECT_FALSE(isFileLocked(folder / "file", kLockRead | kLockWrite));

  FILE_INFO a = Look(folder / "file"), b = a;
  b.uid = a.uid + 1;
  EXPECT_TRUE(a == b);
  b.mtime = a.mtime + 1;
  EXPECT_FALSE(a == b);
}

TEST(FileOp, RemovesTreesButNeverWhatLinksPointTo) {
  const TempFolder folder, outside;
  WriteFile(outside / "precious", "x");
  fs::create_directories((folder / "tree/a/b").str());
  WriteFile(folder / "tree/a/read-only", "r");
  fs::permissions((folder / "tree/a/read-only").str(), fs::perms::owner_read);
  const bool has_links = test::MakeLink(outside.path(), (folder / "tree/a/link").str()) &&
                         test::MakeLink(outside.path(), (folder / "top-link").str());

  EXPECT_EQ(FSRemove(folder / "tree", false), 0);
  EXPECT_FALSE(fs::exists((folder / "tree").str()));
  if (has_links) {
    EXPECT_EQ(FSRemove(folder / "top-link", false), 0);
    EXPECT_FALSE(fs::is_symlink((folder / "top-link").str()));
  }
  EXPECT_EQ(ReadFile(outside / "precious"), "x");
  EXPECT_EQ(FSRemove(folder / "missing", false), 0);
  EXPECT_EQ(FSRemove("", false), -1);
}

TEST(FileOp, RemovalNeverEntersAFolderThatBecameALink) {
  const TempFolder folder, outside;
  if (!test::MakeLink(outside.path(), (folder / "link").str())) GTEST_SKIP() << "no links here";
  WriteFile(outside / "precious", "x");
  fs::create_directories((folder / "tree/a").str());
  platform::FaultPlan plan;
  platform::ForwardingFiles faulty(platform::files(), [&](const char* call) {
    // The folder becomes a link after it was listed as a folder.
    if (std::string_view(call) == "OpenRealDirectory" && plan.calls("OpenRealDirectory") == 1) {
      fs::rename((folder / "tree/a").str(), (outside / "moved").str());
      EXPECT_TRUE(test::MakeLink(outside.path(), (folder / "tree/a").str()));
    }
    return plan.hook()(call);
  });
  platform::SetFiles(&faulty);
  EXPECT_EQ(FSRemove(folder / "tree", false), 0);
  EXPECT_FALSE(fs::exists((folder / "tree").str()));
  EXPECT_EQ(ReadFile(outside / "precious"), "x");
  platform::SetFiles(nullptr);
}

TEST(FileOp, AChildThatVanishedIsNoReasonToCallTheTreeRemoved) {
  const TempFolder folder;
  fs::create_directories((folder / "tree").str());
  WriteFile(folder / "tree/file", "r");
  platform::FaultPlan plan;
  platform::ForwardingFiles faulty(platform::files(), plan.hook());
  platform::SetFiles(&faulty);
  plan.FailNth("RemoveFile", 1, ErrorKind::kNotFound);
  EXPECT_EQ(FSRemove(folder / "tree", false), -1);  // the file is still in the way
  EXPECT_EQ(FSRemove(folder / "tree", false), 0);
  platform::SetFiles(nullptr);
}

TEST(FileOp, DeepTreesAreWalkedAndRemoved) {
  const TempFolder folder;
  const std::string step = "/" + std::string(test::kNameLength, 'd');
  std::string deepest;
  while (folder.path().size() + deepest.size() < 4000) deepest += step;
  EXPECT_EQ(FSMKDir(folder.path() + deepest, true), 0);
  WriteFile(folder.path() + deepest + "/f", "x");
  std::size_t visited = 0;
  EXPECT_EQ(TraverseDir(
                ustring(folder.path()),
                [](const ustring&, void* count) {
                  ++*static_cast<std::size_t*>(count);
                  return 0;
                },
                &visited),
            0);
  EXPECT_EQ(visited, deepest.size() / step.size() + 2);
  EXPECT_EQ(FSRemove(folder.path() + step, false), 0);
  EXPECT_FALSE(fs::exists(folder.path() + step));
}

class FakeTrash : public platform::Trash {
 public:
  explicit FakeTrash(ErrorKind answer) : answer_(answer) { platform::SetTrash(this); }
  ~FakeTrash() override { platform::SetTrash(nullptr); }
  Status MoveToTrash(const ustring&) override { return {answer_, 7}; }

 private:
  ErrorKind answer_;
};

TEST(FileOp, RemovalThroughTheBin) {
  const TempFolder folder;
  WriteFile(folder / "file", "x");
  {
    FakeTrash refuses(ErrorKind::kAccessDenied);
    EXPECT_EQ(FSRemove(folder / "file", true), -3);
    EXPECT_TRUE(fs::exists((folder / "file").str()));
  }
  {
    FakeTrash none(ErrorKind::kNotSupported);
    EXPECT_EQ(FSRemove(folder / "file", true), 0);
    EXPECT_FALSE(fs::exists((folder / "file").str()));
  }
}

TEST(FileOp, Renames) {
  const TempFolder folder;
  WriteFile(folder / "from", "new");
  WriteFile(folder / "to", "old");
  EXPECT_EQ(FSRenameNoReplace(folder / "from", folder / "to"), -1);
  EXPECT_EQ(ReadFile(folder / "to"), "old");
  EXPECT_EQ(FSRename(folder / "from", folder / "to", false), 0);
  EXPECT_EQ(ReadFile(folder / "to"), "new");
  EXPECT_EQ(FSRename(folder / "to", folder / std::string(300, 'n'), false), kNameNotSupported);
  EXPECT_EQ(FSRename(folder / "missing", folder / "to", false), -1);
  EXPECT_EQ(ReadFile(folder / "to"), "new");
}

TEST(FileOp, CopyReportsEveryFailureAndKeepsTheSource) {
  const TempFolder folder;
  WriteFile(folder / "from", std::string(100'000, 'c'));
  platform::FaultPlan plan;
  platform::ForwardingFiles faulty(platform::files(), plan.hook());
  platform::SetFiles(&faulty);
  unsigned nth = 0, failures = 0;
  do {
    plan.Clear();
    plan.FailNth(++nth, ErrorKind::kNoSpace);
    const int result = FSCopy(folder / "from", folder / "to", false);
    failures = plan.failures();
    // A failing close of the source alone changes nothing.
    if (result == 0) {
      EXPECT_TRUE(ReadFile(folder / "to") == std::string(100'000, 'c'));
    }
    EXPECT_TRUE(ReadFile(folder / "from") == std::string(100'000, 'c'));
    if (failures == 0) {
      EXPECT_EQ(result, 0);
    }
  } while (failures > 0 && nth < 50);
  platform::SetFiles(nullptr);
  EXPECT_GT(nth, 5u);

  // Through a link as well, a file copied onto itself keeps its content.
  EXPECT_EQ(FSCopy(folder / "from", folder / "from", true), -1);
  if (test::MakeLink("from", (folder / "link").str())) {
    EXPECT_EQ(FSCopy(folder / "from", folder / "link", true), -1);
  }
  EXPECT_EQ(ReadFile(folder / "from").size(), 100'000u);

  EXPECT_EQ(FSCopy(folder / "from", folder / "moved", true), 0);
  EXPECT_FALSE(fs::exists((folder / "from").str()));
  EXPECT_EQ(FSCopy(folder / "from", folder / "moved", true), -1);
}

TEST(FileOp, MakesFolders) {
  const TempFolder folder;
  EXPECT_EQ(FSMKDir(folder / "a/b", false), -1);
  EXPECT_EQ(FSMKDir(folder / "a//b/c/", true), 0);
  EXPECT_EQ(FSMKDir(folder / "a/b", false), 0);
  EXPECT_TRUE(fs::is_directory((folder / "a/b/c").str()));
  WriteFile(folder / "a/file", "x");
  EXPECT_EQ(FSMKDirP(folder / "a/file/d", nullptr, false, -1, -1, 0), -1);
  EXPECT_EQ(FSMKDir(folder / "a/file", false), -1);
  EXPECT_EQ(ReadFile(folder / "a/file"), "x");
  EXPECT_EQ(FSMKDirP(folder / "a/file/d", nullptr, true, -1, -1, 0), 0);
  EXPECT_TRUE(fs::is_directory((folder / "a/file/d").str()));
  if (test::MakeLink("b", (folder / "a/link").str())) {
    EXPECT_EQ(FSMKDirP(folder / "a/link/e", nullptr, true, -1, -1, 0), 0);
    EXPECT_TRUE(fs::is_directory((folder / "a/b/e").str()));
  }
  EXPECT_EQ(FSMKDir(folder / std::string(300, 'n'), true), kNameNotSupported);
  EXPECT_EQ(FSMKDirP("", nullptr, true, -1, -1, 0), -1);
}

TEST(FileOp, TemporaryFilesAreNewAndPrivate) {
  const TempFolder folder;
  platform::FaultPlan plan;
  platform::ForwardingFiles faulty(platform::files(), plan.hook());
  platform::SetFiles(&faulty);
  plan.FailNth("Open", 1, ErrorKind::kExists);  // the first name is in use
  ustring path;
  EXPECT_EQ(FSMktemp(ustring(folder.path()), path), 0);
  platform::SetFiles(nullptr);
  EXPECT_EQ(plan.calls("Open"), 2u);
  EXPECT_TRUE(!test::HasModes() || fs::status(path.str()).permissions() ==
                                       (fs::perms::owner_read | fs::perms::owner_write));
  EXPECT_EQ(FSMktemp(folder / "missing", path), -1);
  for (const char* root : {"", "/"}) {
    EXPECT_EQ(FSMktemp(root, path), -1);
    EXPECT_TRUE(path.empty());
  }
}

class CoarseVolumes : public platform::Volumes {
 public:
  CoarseVolumes() { platform::SetVolumes(this); }
  ~CoarseVolumes() override { platform::SetVolumes(nullptr); }
  platform::DriveKind KindOf(const ustring& path) override {
    return path == "/far" ? platform::DriveKind::kRemote : platform::DriveKind::kFixed;
  }
  Status FileSystemName(const ustring&, ustring& name) override {
    name = "vfat";
    return {};
  }
  Status IsCoarseTimed(const ustring&, bool& coarse) override {
    coarse = true;
    return {};
  }
  bool IsVolumePath(const ustring& path) override { return !path.empty(); }
  std::unique_ptr<platform::VolumeMonitor> NewMonitor() override { return nullptr; }
};

// Changes the process for good, as FSInit does: the last of these tests to look at times.
TEST(FileOpTimes, ExactUntilACoarseVolumeTakesPart) {
  const TempFolder folder;
  WriteFile(folder / "file", "x");
  EXPECT_EQ(FSUTime(folder / "file", 5, 101), 0);
  EXPECT_EQ(Look(folder / "file").mtime, 101u);
  EXPECT_FALSE(FSTimeEqual(100, 101));
  EXPECT_EQ(FSUTime(folder / "missing", 5, 101), -1);
  EXPECT_EQ(FSInit(""), -1);

  CoarseVolumes volumes;
  EXPECT_TRUE(IsMSDOS("/x"));
  EXPECT_TRUE(isMountPoint("/far") && !isMountPoint("/x"));
  EXPECT_FALSE(FSTimeEqual(100, 101)) << "IsMSDOS only looks";
  EXPECT_EQ(FSInit("/x"), 0);
  EXPECT_TRUE(FSTimeEqual(100, 101) && FSTimeEqual(101, 100));
  EXPECT_FALSE(FSTimeEqual(100, 102));
  EXPECT_EQ(FSUTime(folder / "file", 5, 101), 0);
  EXPECT_EQ(Look(folder / "file").mtime, 100u);
}

struct Walk {
  std::vector<std::string> seen;
  std::string refused;
  std::size_t prefix = 0;

  static int Visit(const ustring& path, void* walk) {
    auto& self = *static_cast<Walk*>(walk);
    self.seen.push_back(path.str().substr(self.prefix));
    return self.seen.back() == self.refused ? 1 : 0;
  }
};

TEST(FileOp, Traversal) {
  const TempFolder folder, outside;
  fs::create_directories((folder / "d1").str());
  fs::create_directories((folder / "d2").str());
  WriteFile(folder / "d1/x", "");
  WriteFile(folder / "d2/y", "");
  WriteFile(outside / "secret", "");
  std::vector<std::string> everything{"", "/d1", "/d1/x", "/d2", "/d2/y"};
  if (test::MakeLink(outside.path(), (folder / "d1/link").str())) everything.push_back("/d1/link");
  const ustring root(folder.path());

  Walk all{{}, "nothing", root.size()};
  EXPECT_EQ(TraverseDir(root, Walk::Visit, &all), 0);
  EXPECT_THAT(all.seen, testing::UnorderedElementsAreArray(everything));

  EXPECT_EQ(TraverseDir(
                root, [](const ustring&, void*) { return 1; }, nullptr),
            -2);

  // A file that is refused ends the walk of its own folder, not that of the folders beside it.
  Walk stopped{{}, "/d1/x", root.size()};
  EXPECT_EQ(TraverseDir(root, Walk::Visit, &stopped), 0);
  EXPECT_THAT(stopped.seen, testing::IsSupersetOf({"/d1/x", "/d2", "/d2/y"}));
  EXPECT_EQ(TraverseDir(folder / "missing", Walk::Visit, &stopped), 0);
}

TEST(FileOp, ListingTellsAnErrorFromTheEnd) {
  const TempFolder folder;
  WriteFile(folder / "f1", "123");
  WriteFile(folder / "f2", "");
  DIR_HANDLE dh;
  DIR_ENTRY entry;
  std::vector<std::string> names;
  FSOpenDir(ustring(folder.path()), kDirStat, dh);
  while (FSReadDir(dh, entry) == 1) {
    names.push_back(entry.name.str());
    if (entry.name == "f1") {
      EXPECT_EQ(entry.size, 3u);
    }
  }
  EXPECT_EQ(FSReadDir(dh, entry), 0);
  EXPECT_EQ(FSCloseDir(dh), 0);
  EXPECT_THAT(names, testing::UnorderedElementsAre(".", "..", "f1", "f2"));

  bool missing = false;
  FSOpenDir(folder / "missing", 0, dh);
  EXPECT_EQ(FSReadDir(dh, entry, missing), -1);
  EXPECT_TRUE(missing);

  platform::FaultPlan plan;
  platform::ForwardingFiles faulty(platform::files(), plan.hook());
  platform::SetFiles(&faulty);
  plan.FailNth("Next", 3, ErrorKind::kOther);
  FSOpenDir(ustring(folder.path()), 0, dh);
  int result = 1;
  while (result == 1) result = FSReadDir(dh, entry, missing);
  FSCloseDir(dh);
  platform::SetFiles(nullptr);
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(missing);
}

}  // namespace
}  // namespace tolven
