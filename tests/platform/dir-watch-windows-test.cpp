// Watching a tree with the calls of Windows. Below a folder that was there before the watch, wine
// tells only what happens once the folder has been listed, and after a folder's rename it tells its
// old name: each test lists the tree after arming, as the daemon does, and none goes on in a folder
// that it has renamed.
#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/dir-watch.h"
#include "platform/files.h"
#include "platform/forwarding-dir-watch.h"
#include "support/temp-folder.h"

namespace tolven::platform {
namespace {

namespace fs = std::filesystem;
using test::FsPath;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

constexpr char kSkip[] = ".work";
constexpr int kPatienceMs = 20'000;

// A watched folder, and what its watch has told.
class DirWatchTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directory(FsPath(root_)); }

  void Open() {
    ASSERT_TRUE(dir_watch().Open(root_, kSkip, watch_).ok());
    for ([[maybe_unused]] const auto& entry : fs::recursive_directory_iterator(FsPath(root_))) {
    }
  }
  std::string At(const std::string& name) const { return root_.str() + "/" + name; }
  void Touch(const std::string& name) const { test::WriteFile(At(name), "x"); }
  void Rename(const std::string& from, const std::string& to) const {
    ASSERT_TRUE(files().Rename(At(from), At(to)).ok()) << from;
  }

  WatchResult ReadOnce(std::vector<std::string>& told) {
    Status status;
    EXPECT_EQ(dir_watch().Wait({watch_}, kPatienceMs, status), 0);
    std::vector<WatchRecord> records;
    const WatchResult result = watch_->Read(records, status);
    for (const WatchRecord& record : records) {
      std::string text = std::to_string(record.action) + " " + record.name.str();
      // How often a write is told is the system's choice.
      if (told.empty() || told.back() != text) told.push_back(std::move(text));
    }
    return result;
  }

  // What was told of everything that has happened so far. A file made last marks the end.
  std::vector<std::string> Told() {
    const std::string marker = "end" + std::to_string(++markers_);
    fs::create_directory(FsPath(At(marker)));
    std::vector<std::string> told;
    while (!HasFailure() && (told.empty() || told.back() != "1 " + marker)) {
      const WatchResult result = ReadOnce(told);
      EXPECT_THAT(result, ::testing::AnyOf(WatchResult::kRecords, WatchResult::kNothing));
    }
    if (!told.empty()) told.pop_back();
    std::erase_if(told, [](const std::string& text) { return text.substr(2, 3) == "end"; });
    return told;
  }

  test::TempFolder folder_;
  const ustring root_ = folder_ / "root";
  std::shared_ptr<DirWatch> watch_;
  int markers_ = 0;
};

TEST_F(DirWatchTest, TellsChangesOfFilesAsTheSharedActions) {
  Open();
  Touch("a \xC3\xA4");
  EXPECT_THAT(Told(), IsSupersetOf({"1 a \xC3\xA4"}));
  std::ofstream(FsPath(At("a \xC3\xA4")), std::ios::app) << "more";
  EXPECT_THAT(Told(), ElementsAre("3 a \xC3\xA4"));
  Rename("a \xC3\xA4", "b");
  EXPECT_THAT(Told(), ElementsAre("4 a \xC3\xA4", "5 b"));
  ASSERT_TRUE(files().Rename(At("b"), folder_ / "outside").ok());
  EXPECT_THAT(Told(), ElementsAre(::testing::AnyOf("2 b", "4 b")));
  ASSERT_TRUE(files().Rename(folder_ / "outside", At("c")).ok());
  fs::remove(FsPath(At("c")));
  EXPECT_THAT(Told(), ElementsAre(::testing::AnyOf("1 c", "5 c"), "2 c"));
}

TEST_F(DirWatchTest, TellsChangesBelowFoldersOldAndNew) {
  fs::create_directories(FsPath(At("old/deep")));
  Open();
  Touch("old/deep/f");
  fs::create_directories(FsPath(At("new/deep")));
  Touch("new/deep/f");
  // With the names of this system; portable code turns the separators.
  EXPECT_THAT(Told(), IsSupersetOf({"1 old\\deep\\f", "1 new", "1 new\\deep"}));
}

TEST_F(DirWatchTest, ChangesBetweenTwoReadsWait) {
  Open();
  for (int i = 0; i < 20; ++i) {
    Touch("f" + std::to_string(i));
    if (i == 10) {
      std::vector<std::string> told;
      ReadOnce(told);
      EXPECT_EQ(told.at(0), "1 f0");
    }
  }
  EXPECT_THAT(Told(), IsSupersetOf({"1 f11", "1 f19"}));
}

TEST_F(DirWatchTest, AnOverfullBufferIsToldAndTheWatchGoesOn) {
  Open();
  const std::string stem(100, 'n');
  for (int i = 0; i < 400; ++i) Touch(stem + std::to_string(i));
  std::vector<std::string> told;
  WatchResult result = WatchResult::kNothing;
  while (result != WatchResult::kOverflow && !HasFailure()) result = ReadOnce(told);
  EXPECT_EQ(result, WatchResult::kOverflow);
  EXPECT_LT(told.size(), 400u);
  Touch("after");
  EXPECT_THAT(Told(), IsSupersetOf({"1 after"}));
}

TEST_F(DirWatchTest, RefusesWhatIsNoFolder) {
  test::WriteFile(At("file"), "x");
  EXPECT_EQ(dir_watch().Open(At("none"), kSkip, watch_).kind, ErrorKind::kNotFound);
  EXPECT_EQ(dir_watch().Open(At("file"), kSkip, watch_).kind, ErrorKind::kNotDirectory);
  EXPECT_EQ(dir_watch().Open(At("nul"), kSkip, watch_).kind, ErrorKind::kNameTooLong);
  EXPECT_EQ(watch_, nullptr);
}

// The request, its buffer and its event belong to the system until it has ended.
TEST_F(DirWatchTest, EndsWhileItsRequestIsUnderWayAndSomeoneWaits) {
  for (int i = 0; i < 50; ++i) {
    Open();
    std::thread waiter([shared = watch_] {
      Status status;
      (void)dir_watch().Wait({shared}, 5, status);
    });
    Touch("f" + std::to_string(i));
    watch_.reset();
    waiter.join();
  }
  Status status;
  EXPECT_EQ(dir_watch().Wait({}, 1, status), -1);
}

TEST_F(DirWatchTest, WaitPicksTheWatchWithNewsAlsoOfMany) {
  constexpr int kMany = 150;  // the system waits for 64 at once
  std::vector<std::shared_ptr<DirWatch>> watches(kMany);
  for (int i = 0; i < kMany; ++i) {
    const std::string name = "w" + std::to_string(i);
    fs::create_directory(FsPath(At(name)));
    ASSERT_TRUE(dir_watch().Open(At(name), kSkip, watches[static_cast<std::size_t>(i)]).ok());
  }
  Status status;
  EXPECT_EQ(dir_watch().Wait(watches, 0, status), -1);
  for (const int i : {140, 70, 3}) {
    Touch("w" + std::to_string(i) + "/f");
    EXPECT_EQ(dir_watch().Wait(watches, kPatienceMs, status), i);
    std::vector<WatchRecord> records;
    while (dir_watch().Wait({watches[static_cast<std::size_t>(i)]}, 0, status) == 0) {
      (void)watches[static_cast<std::size_t>(i)]->Read(records, status);
    }
  }
}

TEST_F(DirWatchTest, ItsCallsCanBeMadeToFail) {
  Open();
  std::string failing = "Read";
  ForwardingDirWatchService wrapped(dir_watch(), [&failing](const char* call) {
    return Status{std::string(call) == failing ? ErrorKind::kOther : ErrorKind::kNone, 0};
  });
  std::shared_ptr<DirWatch> second;
  ASSERT_TRUE(wrapped.Open(root_, kSkip, second).ok());
  Touch("f");
  Status status;
  EXPECT_EQ(wrapped.Wait({second}, kPatienceMs, status), 0);
  std::vector<WatchRecord> records;
  EXPECT_EQ(second->Read(records, status), WatchResult::kFailed);
  failing = "Wait";
  EXPECT_EQ(second->Read(records, status), WatchResult::kRecords);
  EXPECT_EQ(wrapped.Wait({second}, 0, status), -2);
}

}  // namespace
}  // namespace tolven::platform
