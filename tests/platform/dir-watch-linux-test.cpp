// Watching a tree, on the real system.
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

#include "platform/dir-watch.h"
#include "platform/forwarding-dir-watch.h"
#include "platform/modify-throttle-linux.h"
#include "support/temp-folder.h"

namespace tolven::platform {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

constexpr char kSkip[] = ".work";
constexpr int kPatienceMs = 20'000;

std::string Text(const WatchRecord& record) {
  return std::to_string(record.action) + " " + record.name.str();
}

// A watched folder, and what its watch has told.
class DirWatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(root_.str());
    Open();
  }

  void Open() { ASSERT_TRUE(dir_watch().Open(root_, kSkip, watch_).ok()); }
  std::string At(const std::string& name) const { return root_.str() + "/" + name; }
  void Touch(const std::string& name) const { test::WriteFile(At(name), "x"); }

  // Waits for the watch and reads it once.
  WatchResult ReadOnce(std::vector<std::string>& told) {
    Status status;
    EXPECT_EQ(dir_watch().Wait({watch_}, kPatienceMs, status), 0);
    std::vector<WatchRecord> records;
    const WatchResult result = watch_->Read(records, status);
    for (const WatchRecord& record : records) told.push_back(Text(record));
    return result;
  }

  // What was told of everything that has happened so far. A file made last marks the end.
  std::vector<std::string> Told() {
    const std::string marker = "end" + std::to_string(++markers_);
    Touch(marker);
    std::vector<std::string> told;
    for (;;) {
      const std::size_t before = told.size();
      const WatchResult result = ReadOnce(told);
      EXPECT_THAT(result, ::testing::AnyOf(WatchResult::kRecords, WatchResult::kNothing));
      if (HasFailure()) return told;
      for (std::size_t i = before; i < told.size(); ++i) {
        if (told[i] != "3 " + marker) continue;
        std::erase_if(told, [&](const std::string& text) { return text.substr(2) == marker; });
        return told;
      }
    }
  }

  WatchResult ReadUntil(WatchResult wanted) {
    std::vector<std::string> told;
    for (int i = 0; i < 1000 && !HasFailure(); ++i) {
      const WatchResult result = ReadOnce(told);
      if (result == wanted) return result;
    }
    return WatchResult::kNothing;
  }

  std::string failing_;  // the call that a wrapped service refuses
  test::TempFolder folder_;
  const ustring root_ = folder_ / "root";
  const std::string outside_ = (folder_ / "outside").str();
  std::shared_ptr<DirWatch> watch_;
  int markers_ = 0;
};

TEST_F(DirWatchTest, TellsChangesOfFilesAsTheSharedActions) {
  Touch("a b");
  EXPECT_THAT(Told(), ElementsAre("1 a b", "3 a b"));
  fs::last_write_time(At("a b"), fs::file_time_type::clock::now());
  EXPECT_THAT(Told(), ElementsAre("3 a b"));
  fs::rename(At("a b"), At("c"));
  EXPECT_THAT(Told(), ElementsAre("4 a b", "5 c"));
  fs::rename(At("c"), outside_);
  fs::rename(outside_, At("d"));
  fs::remove(At("d"));
  EXPECT_THAT(Told(), ElementsAre("2 c", "1 d", "2 d"));
  fs::create_directory_symlink(folder_.path(), At("link"));
  test::WriteFile(outside_, "not below the root");
  EXPECT_THAT(Told(), ElementsAre("1 link"));
}

TEST_F(DirWatchTest, HoldsAHalfRenameForItsOtherHalfAndThenTellsARemoval) {
  Touch("a");
  (void)Told();
  fs::rename(At("a"), outside_);
  std::vector<std::string> told;
  const auto start = std::chrono::steady_clock::now();
  while (told.empty() && !HasFailure()) ReadOnce(told);
  EXPECT_THAT(told, ElementsAre("2 a"));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(10));
}

TEST_F(DirWatchTest, FoldersKeepTheirWatchAndGetTheirPathWhenTheyMove) {
  fs::create_directories(At("a/b/c"));
  Touch("a/b/c/early");
  // Told by the reading of the new folders, whether or not the watches came in time.
  EXPECT_THAT(Told(), IsSupersetOf({"1 a", "1 a/b", "1 a/b/c", "1 a/b/c/early"}));
  fs::create_directory(At("z"));
  EXPECT_THAT(Told(), ElementsAre("1 z"));
  fs::rename(At("a/b"), At("z/b"));
  Touch("z/b/c/f");
  EXPECT_THAT(Told(), ElementsAre("4 a/b", "5 z/b", "1 z/b/c/f", "3 z/b/c/f"));

  // Out of the tree nothing is told any more, and back in everything is found.
  fs::rename(At("z/b"), outside_);
  EXPECT_THAT(Told(), ElementsAre("2 z/b"));
  test::WriteFile(outside_ + "/c/unseen", "x");
  EXPECT_THAT(Told(), IsEmpty());
  fs::rename(outside_, At("back"));
  EXPECT_THAT(Told(), IsSupersetOf({"1 back", "1 back/c", "1 back/c/f", "1 back/c/unseen"}));
  fs::remove_all(At("back"));
  fs::create_directory(At("back"));
  (void)Told();
  Touch("back/again");
  EXPECT_THAT(Told(), Contains("1 back/again"));
}

TEST_F(DirWatchTest, OfTheWorkingDirectoryOnlyTheLossOfItsFoldersIsTold) {
  fs::create_directories(At(".work/recycle"));
  EXPECT_THAT(Told(), ElementsAre("1 .work"));
  Touch(".work/temp");
  fs::create_directory(At(".work/sub"));
  Touch(".work/sub/x");
  EXPECT_THAT(Told(), IsEmpty());
  // A rename with one end there counts for its other end alone.
  fs::rename(At(".work/temp"), At("done"));
  EXPECT_THAT(Told(), ElementsAre("1 done"));
  fs::rename(At("done"), At(".work/recycle/done"));
  EXPECT_THAT(Told(), ElementsAre("2 done"));
  fs::remove_all(At(".work/recycle"));
  EXPECT_THAT(Told(), ElementsAre("2 .work/recycle"));
  fs::rename(At(".work"), At("w"));
  EXPECT_THAT(Told(), IsSupersetOf({"2 .work", "1 w", "1 w/sub", "1 w/sub/x"}));
  fs::create_directories(At("deep/.work"));
  (void)Told();
  Touch("deep/.work/x");
  Touch("w/y");
  EXPECT_THAT(Told(), ElementsAre("1 w/y", "3 w/y"));
}

TEST_F(DirWatchTest, AnOverfullQueueIsToldAndTheWatchGoesOn) {
  fs::create_directories(At("a/b"));
  // Two files by turns, since the kernel keeps only one of several equal events in a row.
  for (int i = 0; i < 20'000; ++i) {
    std::ofstream(At(i % 2 == 0 ? "even" : "odd"), std::ios::app).flush();
  }
  fs::create_directories(At("made/meanwhile"));
  EXPECT_EQ(ReadUntil(WatchResult::kOverflow), WatchResult::kOverflow);
  Touch("made/meanwhile/f");
  Touch("a/b/f");
  EXPECT_THAT(Told(), IsSupersetOf({"1 made/meanwhile/f", "1 a/b/f"}));
}

TEST_F(DirWatchTest, TheEndOfTheRootIsToldOnceAndWithoutRemovals) {
  Touch("f");
  (void)Told();
  fs::remove_all(root_.str());
  std::vector<std::string> told;
  EXPECT_EQ(ReadOnce(told), WatchResult::kGone);
  EXPECT_THAT(told, IsEmpty());
  Status status;
  EXPECT_EQ(dir_watch().Wait({watch_}, 0, status), -1);

  fs::create_directory(root_.str());
  Open();
  fs::rename(root_.str(), outside_);
  EXPECT_EQ(ReadUntil(WatchResult::kGone), WatchResult::kGone);
  EXPECT_EQ(dir_watch().Open(root_, kSkip, watch_).kind, ErrorKind::kNotFound);
  test::WriteFile(root_, "a file");
  EXPECT_EQ(dir_watch().Open(root_, kSkip, watch_).kind, ErrorKind::kNotDirectory);
  EXPECT_EQ(watch_, nullptr);
}

TEST_F(DirWatchTest, WaitPicksTheWatchWithNewsAndItsCallsCanBeMadeToFail) {
  test::TempFolder other;
  CallHook refuse = [this](const char* call) {
    return Status{std::string(call) == failing_ ? ErrorKind::kOther : ErrorKind::kNone, 0};
  };
  ForwardingDirWatchService wrapped(dir_watch(), refuse);
  std::shared_ptr<DirWatch> second;
  ASSERT_TRUE(wrapped.Open(other.path(), kSkip, second).ok());
  Status status;
  EXPECT_EQ(wrapped.Wait({watch_, second}, 0, status), -1);
  test::WriteFile(other / "f", "x");
  EXPECT_EQ(wrapped.Wait({watch_, second}, kPatienceMs, status), 1);
  std::vector<WatchRecord> records;
  failing_ = "Read";
  EXPECT_EQ(second->Read(records, status), WatchResult::kFailed);
  failing_ = "Open";
  EXPECT_EQ(second->Read(records, status), WatchResult::kRecords);
  EXPECT_EQ(second->Read(records, status), WatchResult::kNothing);
  EXPECT_FALSE(wrapped.Open(other.path(), kSkip, second).ok());
  failing_ = "Wait";
  EXPECT_EQ(wrapped.Wait({watch_}, 0, status), -2);
}

std::set<std::string> OnDisk(const std::string& root, const std::string& below = "") {
  std::set<std::string> paths;
  if (!fs::is_directory(root + below)) return paths;
  for (const auto& entry : fs::recursive_directory_iterator(root + below)) {
    if (entry.path().filename().string().starts_with("end")) continue;
    paths.insert(entry.path().string().substr(root.size() + 1));
  }
  return paths;
}

// What someone knows of a tree who has only the records, and looks below a new folder.
class Picture {
 public:
  explicit Picture(std::string root) : root_(std::move(root)) {}

  void Apply(const std::vector<std::string>& told) {
    for (const std::string& text : told) Apply(text[0], text.substr(2));
  }
  const std::set<std::string>& paths() const { return paths_; }

 private:
  void Apply(char action, const std::string& path) {
    if (action == '1' || action == '5') {
      if (fs::exists(root_ + "/" + path)) paths_.insert(path);
      paths_.merge(OnDisk(root_, "/" + path));
    } else if (action == '2' || action == '4') {
      std::erase_if(paths_, [&](const std::string& each) {
        return each == path || each.starts_with(path + "/");
      });
    }
  }

  const std::string root_;
  std::set<std::string> paths_;
};

// Names are few, so that they are used again and again while earlier news of them still waits.
TEST_F(DirWatchTest, WhatIsToldAddsUpToTheTreeUnderRandomChanges) {
  for (unsigned seed = 1; seed <= 30; ++seed) {
    std::mt19937 random(seed);
    const auto name = [&] {
      std::string path(1, static_cast<char>('a' + random() % 3));
      for (auto depth = random() % 4; depth > 0; --depth) {
        path += std::string("/") + static_cast<char>('a' + random() % 3);
      }
      return path;
    };
    fs::remove_all(root_.str());
    fs::remove_all(outside_);
    fs::create_directory(root_.str());
    fs::create_directory(outside_);
    Open();
    Picture picture(root_.str());
    for (int step = 0; step < 150; ++step) {
      std::error_code ignored;
      const auto choice = random() % 10;
      if (choice < 4) fs::create_directory(At(name()), ignored);
      if (choice == 4) test::WriteFile(At(name()), "x");
      if (choice == 5) fs::remove_all(At(name()), ignored);
      if (choice == 6 || choice == 7) fs::rename(At(name()), At(name()), ignored);
      if (choice == 8) fs::rename(At(name()), outside_ + "/" + name(), ignored);
      if (choice == 9) fs::rename(outside_ + "/" + name(), At(name()), ignored);
      if (random() % 20 == 0) picture.Apply(Told());
    }
    picture.Apply(Told());
    EXPECT_EQ(picture.paths(), OnDisk(root_.str())) << "seed " << seed;
    // Every folder is watched, and under its right name.
    std::vector<std::string> wanted;
    for (const std::string& path : OnDisk(root_.str())) {
      if (!fs::is_directory(At(path))) continue;
      Touch(path + "/probe");
      wanted.push_back("1 " + path + "/probe");
    }
    EXPECT_THAT(Told(), IsSupersetOf(wanted)) << "seed " << seed;
    if (HasFailure()) return;
  }
}

TEST_F(DirWatchTest, ReadsWhileAnotherThreadBuildsATree) {
  std::thread writer([this] {
    for (int i = 0; i < 100; ++i) {
      const std::string top = "d" + std::to_string(i);
      fs::create_directories(At(top + "/e"));
      for (int j = 0; j < 20; ++j) Touch(top + "/e/f" + std::to_string(j));
      if (i % 3 == 0) fs::rename(At(top), At("r" + std::to_string(i)));
    }
  });
  Picture picture(root_.str());
  std::vector<std::string> told;
  while (told.size() < 1000) ReadOnce(told);
  writer.join();
  picture.Apply(told);
  picture.Apply(Told());
  EXPECT_EQ(picture.paths(), OnDisk(root_.str()));
}

// Lowers the limit for this process alone, in a user namespace of its own.
bool AllowWatches(int count) {
  if (::unshare(CLONE_NEWUSER) != 0) return false;
  std::ofstream limit("/proc/sys/user/max_inotify_watches");
  limit << count << std::endl;
  return limit.good();
}

TEST_F(DirWatchTest, TheLimitOfWatchesIsToldOnceAndTheRestGoesOn) {
  constexpr int kNoNamespaces = 77;
  fs::create_directories(At("a/b/c/d/e"));
  const pid_t child = ::fork();
  if (child == 0) {
    if (!AllowWatches(3)) ::_exit(kNoNamespaces);
    Open();
    std::vector<std::string> told;
    const bool first = ReadOnce(told) == WatchResult::kLimit;
    Touch("a/f");
    Touch("a/b/c/d/unseen");
    told = Told();
    const bool others = std::count(told.begin(), told.end(), "1 a/f") == 1;
    const bool unseen = std::count(told.begin(), told.end(), "1 a/b/c/d/unseen") == 1;
    std::shared_ptr<DirWatch> one_more;
    const bool refused = dir_watch().Open(At("a"), kSkip, one_more).is(ErrorKind::kTooMany);
    ::_exit(first && others && !unseen && refused && !HasFailure() ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kNoNamespaces) GTEST_SKIP() << "no user namespaces here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(ModifyThrottleTest, TellsTheFirstWriteAtOnceAndTheLastInTheEnd) {
  using std::chrono::milliseconds;
  ModifyThrottle throttle;
  const ModifyThrottle::Time start{};
  std::vector<std::string> due;
  EXPECT_TRUE(throttle.Admit("a", start));
  EXPECT_EQ(throttle.NextDue(), std::nullopt);
  EXPECT_FALSE(throttle.Admit("a", start + milliseconds(900)));
  EXPECT_TRUE(throttle.Admit("b", start + milliseconds(900)));
  EXPECT_EQ(throttle.NextDue(), start + milliseconds(1000));
  throttle.TakeDue(start + milliseconds(999), due);
  EXPECT_THAT(due, IsEmpty());
  throttle.TakeDue(start + milliseconds(1000), due);
  EXPECT_THAT(due, ElementsAre("a"));
  EXPECT_FALSE(throttle.Admit("a", start + milliseconds(1500)));
  throttle.Forget("a");
  throttle.TakeDue(start + milliseconds(9000), due);
  EXPECT_THAT(due, ElementsAre("a"));
  EXPECT_TRUE(throttle.Admit("b", start + milliseconds(9000)));
}

}  // namespace
}  // namespace tolven::platform
