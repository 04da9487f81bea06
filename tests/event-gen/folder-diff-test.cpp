#include "client/core/folder-diff.h"

#include <algorithm>

#include "client/core/event-context.h"
#include "client/core/event-helper.h"
#include "client/core/recent-commits.h"
#include "client/core/root-proof.h"
#include "client/core/session-layout.h"
#include "event-gen/session-fixture.h"
#include "platform/clock.h"

namespace tolven {
namespace {

using Strings = std::vector<std::string>;

class FolderDiffTest : public test::SessionTest {
 protected:
  // Paths that end in "/" are folders; "=" in front of one gives it another time on that side.
  static void Fill(FileList& list, const Strings& paths) {
    for (std::string path : paths) {
      const std::uint32_t mtime = path.front() == '=' ? 101 : 100;
      if (path.front() == '=') path.erase(0, 1);
      if (path.back() == '/') {
        path.pop_back();
        list.AddDirectory(path, mtime, "");
      } else {
        list.AddFile(path, mtime, 1, "");
      }
    }
  }
  int Run(const Strings& disk, const Strings& known, bool merge = false, const char* root = "/") {
    StringBuffer names;
    FileList disk_list(names), known_list(names);
    Fill(disk_list, disk);
    Fill(known_list, known);
    return FolderDiff(entry_, root, merge, &abort_).Run(disk_list, known_list);
  }

  std::atomic<int> abort_{0};
};

TEST_F(FolderDiffTest, PlansWhatBringsBothTogether) {
  const Strings disk{"/d/", "/d/new", "/same", "=/touched", "/turned/", "=/dir/"};
  const Strings known{"/gone/", "/gone/f", "/same", "/touched", "/turned", "/dir/"};
  EXPECT_EQ(Run(disk, known), 0);
  Strings plan = Plan();
  EXPECT_LT(std::find(plan.begin(), plan.end(), "+/d/"),
            std::find(plan.begin(), plan.end(), "+/d/new"));
  std::sort(plan.begin(), plan.end());
  EXPECT_EQ(plan, (Strings{"+/d/", "+/d/new", "+/touched", "+/turned/", "-/gone/", "-/gone/f"}));

  EXPECT_EQ(Run({"/f"}, {"/gone", "/f/"}, true, "/sub"), 0);
  plan = Plan();
  std::sort(plan.begin(), plan.end());
  EXPECT_EQ(plan, (Strings{"+/sub/f", "</sub/gone"}));
  EXPECT_EQ(Run({}, {}), 0);
  entry_.isMSDOS = true;  // 100 and 101 are one time there
  EXPECT_EQ(Run({"=/f"}, {"/f"}), 0);
  abort_ = 1;
  EXPECT_EQ(Run({"/a"}, {"/b"}), -1);
  EXPECT_TRUE(Plan().empty());
}

// Also when the process has ended since.
TEST_F(FolderDiffTest, ComparesWhatWasCommittedRightAfterItsLastWrite) {
  RecentCommits& commits = RecentCommits::getInstance();
  FileEventDB& db = *entry_.event_db;
  DBFileInfo record;
  record.syncID = 1;
  for (const char* path : {"/sub/recent", "/sub/old", "/sub/again"}) {
    record.path = path;
    ASSERT_EQ(db.setEventInfo(record), 0);
  }
  const auto now = static_cast<std::uint32_t>(platform::clock().WallSeconds());
  const std::uint32_t before = now - 60;
  EXPECT_EQ(commits.Committing(db, 1, "/sub/recent", now), 0);
  EXPECT_EQ(commits.Committing(db, 1, "/sub/again", now), 0);
  EXPECT_EQ(commits.Committing(db, 1, "/sub/gone", now), 0);
  EXPECT_EQ(commits.Committing(db, 1, "/sub/old", before), 0);
  commits.Committed(db, 1, "/sub/again", before);
  for (int start = 0; start < 2; ++start) {
    EXPECT_EQ(Run({"/recent", "/old", "/again"}, {"/recent", "/old", "/again"}, false, "/sub"), 0);
    EXPECT_EQ(Plan(), Strings{"+/sub/recent"});
    RecentCommits next;
    EXPECT_EQ(next.Load(db, 1), 0);
    EXPECT_TRUE(next.NeedsHash(1, "/sub/recent"));
    EXPECT_FALSE(next.NeedsHash(1, "/sub/again"));
    EXPECT_FALSE(next.NeedsHash(1, "/sub/gone"));
    EXPECT_EQ(commits.Load(db, 1), 0);
  }
  commits.Compared(db, 1, "/sub/recent", before);
  EXPECT_EQ(commits.Load(db, 1), 0);
  EXPECT_FALSE(commits.NeedsHash(1, "/sub/recent"));
}

TEST_F(FolderDiffTest, NeverRemovesWhatItUploads) {
  // By component "/a/b" stands in front of "/a-b", as whole paths the other way round.
  for (bool merge : {false, true}) {
    EXPECT_EQ(Run({"/a-b", "/a/", "/a/b", "/a/c"}, {"/a/", "/a/b", "/a/c"}, merge), 0);
    for (const std::string& step : Plan()) EXPECT_EQ(step[0], '+') << step;
    EXPECT_EQ(Run({"/a/", "/a/b"}, {"/a-b", "/a-b!/", "/a/", "/a/b"}, merge), 0);
    for (const std::string& step : Plan()) {
      EXPECT_TRUE(step[0] == '+' || step.substr(1, 4) == "/a-b") << step;
    }
  }
}

TEST_F(FolderDiffTest, AFilterKeepsWhatIsMissing) {
  {
    const FilterGuard filter(*entry_.black_list);
    BlackList2::InsertFilter(&filter->File, BlackList2::FILTER_KEY_NAME, "secret");
  }
  Touch("/secret");
  std::filesystem::create_directory((entry_.local_path + "/d").str());
  EXPECT_EQ(Run({"/d/"}, {"/secret", "/d/", "/d/secret", "/other"}), 0);
  EXPECT_EQ(Plan(), Strings{"-/other"});
  std::vector<FilteredEvent> parked;
  entry_.event_db->getLocalFilteredEvent(FilteredEvent::FILTERED_SELECTIVE_SYNC,
                                         FileEventDB::Conditions{}, parked);
  ASSERT_EQ(parked.size(), 1u);  // not the one that the walk passed by
  EXPECT_EQ(parked[0].path, "/d/secret");
  EXPECT_FALSE(parked[0].is_exist);

  EXPECT_EQ(PushEvent(entry_, parked[0]), 1);
  EXPECT_EQ(Plan(), Strings{"</d/secret"});
}

TEST_F(FolderDiffTest, ALostFolderIsNoRemoval) {
  const ustring working = entry_.local_path + "/" + kWorkingDirectory;
  std::filesystem::create_directory(working.str());
  const ustring id = RootProof::Establish(entry_.local_path, *entry_.event_db);
  entry_.root_proof = std::make_shared<RootProof>(1, 1, entry_.local_path, id);
  EventContext context;
  context.SetEntry(entry_);
  std::string order;
  const auto compare = [&](int listed) {
    return EventHelper::CompareFolder(
        context, "/",
        [&](FileList& list) {
          order += "db ";
          Fill(list, {"/f"});
          return 0;
        },
        [&](FileList&) {
          order += "disk ";
          return listed;
        },
        false, &abort_);
  };
  EXPECT_EQ(compare(-1), -1);
  EXPECT_TRUE(Plan().empty());
  EXPECT_EQ(compare(0), 0);
  EXPECT_EQ(Plan(), Strings{"-/f"});
  EXPECT_EQ(order, "db disk db disk ");

  std::filesystem::rename(entry_.local_path.str(), (folder_ / "away").str());
  std::filesystem::create_directory(entry_.local_path.str());
  EXPECT_EQ(compare(0), EventHelper::kRootNotProved);
  EXPECT_EQ(Run({}, {"/f"}), -1);
  EXPECT_EQ(Run({"/f"}, {}), 0);
  EXPECT_EQ(Plan(), Strings{"+/f"});
}

}  // namespace
}  // namespace tolven
