// What comes back when the rules of a session change.
#include "client/core/filter-utils.h"

#include <algorithm>
#include <set>

#include "client/filter-db.h"
#include "event-gen/session-fixture.h"
#include "lib/white-list-cpp.h"

namespace tolven {
namespace {

using Strings = std::vector<std::string>;

class FilterUtils : public test::SessionTest {
 protected:
  FilterUtils() {
    entry_.white_list = std::make_shared<WhiteListCpp>();
    EXPECT_EQ(FilterDB::getInstance().initialize(folder_ / "filter-db"), 0);
    SetRules("", "[File]\nwhite_ext = \"*\"\n");
  }
  ~FilterUtils() override { FilterDB::getInstance().destroy(); }

  void SetRules(const std::string& black, const std::string& white = "") {
    test::WriteFile(folder_ / "black", "[Version]\nmajor = 1\nminor = 0\n" + black);
    ASSERT_EQ(entry_.black_list->Load(folder_ / "black"), 0);
    if (white.empty()) return;
    test::WriteFile(folder_ / "white", white);
    ASSERT_EQ(entry_.white_list->Load(folder_ / "white"), 0);
  }
  void Park(const std::string& path, bool is_server, bool is_exist, bool is_dir = false,
            std::uint64_t size = 0) {
    Event event;
    event.m_type = is_exist ? Event::EV_MODIFY : Event::EV_REMOVE;
    event.m_path = ustring(path);
    event.m_data_size = size;
    event.m_sync_id = event.m_max_id = is_server ? 9 : 0;
    if (is_server) event.setServerEvent();
    if (is_dir) event.setDir();
    const FilteredEvent row =
        FileEventDB::ToFilteredEvent(event, FilteredEvent::FILTERED_SELECTIVE_SYNC);
    ASSERT_EQ(is_server ? entry_.event_db->setServerFilteredEvent(row)
                        : entry_.event_db->setLocalFilteredEvent(row),
              0);
  }
  bool Passes(const FilteredEvent& row) const {
    if (row.IsDir()) return entry_.black_list->TestDirectoryPath(row.path) == 0;
    return entry_.black_list->TestFilePath(row.path) == 0 &&
           entry_.black_list->TestFileSize(row.file_size) == 0 &&
           entry_.white_list->Test(row.name) == 0;
  }
  // Changes and rescans.
  std::vector<Event> All() {
    EventManager& manager = EventManager::getInstance();
    std::vector<Event> events;
    Event event;
    while (manager.PullEvent(&task_, event) == 0) {
      events.push_back(event);
      EXPECT_EQ(manager.DoneEvent(&task_, event), 0);
    }
    return events;
  }
  // Parked rows that the rules now in force let through, by the statement.
  std::set<ustring> LetThrough() {
    SelectiveSyncInfo info;
    GetSelectiveSyncInfo(*entry_.black_list, *entry_.white_list, "/nowhere", info);
    std::vector<FilteredEvent> rows;
    EXPECT_EQ(entry_.event_db->getServerFilteredEvent(FilteredEvent::FILTERED_SELECTIVE_SYNC,
                                                      LetThroughConditions(info), rows),
              0);
    std::set<ustring> paths;
    for (const FilteredEvent& row : rows) paths.insert(row.path);
    return paths;
  }
};

// A row that stays parked although no rule refuses it would never be synced.
TEST_F(FilterUtils, NoRowStaysParkedThatTheRulesLetThrough) {
  const std::string names[] = {"a.tmp", ".tmp",       "A.TMP",  "tmp",    "a.tar.gz", "a.gz",
                               "~x",    "x~",         "n",      "N",      "100%",     "1000",
                               "a_b",   "aXb",        "[1].md", "1.md",   "?.md",     "q.md",
                               "it's",  "\xC3\xA4.o", "plain",  "a.tmp.o"};
  for (const std::string& name : names) {
    Park("/" + name, true, true);
    Park("/dir/" + name, true, true, false, 100);
    Park("/dir/" + name + ".big", true, true, false, 101);
    Park("/dir/sub " + name, true, true, true);
    Park("/folder/" + name, true, true, true);
  }
  std::vector<FilteredEvent> rows;
  ASSERT_EQ(entry_.event_db->getServerFilteredEvent(FilteredEvent::FILTERED_ALL, "/",
                                                    FileEventDB::FILTER_FLAG_INCLUDE_CHILD, rows),
            0);
  ASSERT_EQ(rows.size(), std::size(names) * 5);
  const std::string all = "[File]\nwhite_ext = \"*\"\n";
  // Rules, the white list, and a path that has to stay.
  const std::string cases[][3] = {
      {"[File]\nblack_ext = \"tmp\"\n", all, "/A.TMP"},
      {"[File]\nblack_ext = \"tar.gz\", \"o\"\n", all, "/a.tmp.o"},
      {"[File]\nblack_suffix = \".tmp\", \"~\", \"_b\"\n", all, "/dir/a_b"},
      {"[File]\nblack_name = \"n\", \"it's\"\n", all, "/it's"},
      {"[File]\nblack_prefix = \"a_\", \"1\", \"100%\"\n", all, "/100%"},
      {"[File]\nblack_glob = \"[1]*\", \"?.md\", \"*.gz\"\n", all, "/?.md"},
      {"[File]\nmax_size = 100\n", all, "/dir/plain.big"},
      {"[Common]\nblack_dir_prefix = \"/DIR\", \"/folder/a_b\"\n", all, "/dir/n"},
      {"[Common]\nblack_prefix = \"~\", \"sub\"\n", all, "/folder/~x"},
      {"[Directory]\nblack_name = \"folder\"\n", all, ""},
      {"", "[File]\nwhite_ext = \"md\", \"gz\"\n", "/plain"},
  };
  for (const auto& [black, white, refused] : cases) {
    SCOPED_TRACE(black + white);
    SetRules(black, white);
    const std::set<ustring> paths = LetThrough();
    for (const FilteredEvent& row : rows) {
      if (Passes(row)) {
        EXPECT_TRUE(paths.contains(row.path)) << row.path << (row.IsDir() ? "/" : "");
      }
    }
    EXPECT_FALSE(paths.contains(ustring(refused)));
  }

  // As many rules as a user may pick folders.
  std::string many = "\"x0\"", paths = "\"/x0\"";
  for (int i = 1; i < 3000; ++i) {
    many += ",\n\"x" + std::to_string(i) + "\"";
    paths += ",\n\"/x" + std::to_string(i) + "\"";
  }
  SetRules(
      "[Common]\nblack_dir_prefix = " + paths + ", \"/dir\"\n[File]\nblack_name = " + many + "\n",
      "[File]\nwhite_ext = " + many + ", \"md\"\n");
  const std::set<ustring> left = LetThrough();
  EXPECT_TRUE(left.contains("/q.md") && left.contains("/folder/n"));
  EXPECT_FALSE(left.contains("/dir/q.md") || left.contains("/n"));
}

TEST_F(FilterUtils, ResumesAndRescansWhatARemovedRuleHid) {
  SetRules("[Common]\nblack_dir_prefix = \"/a\", \"/b\", \"/c\"\nblack_prefix = \"~\"\n");
  ASSERT_EQ(ReplaceFilter(entry_, false), 0);
  EXPECT_TRUE(All().empty());
  Park("/a/new", false, true);
  Park("/b/gone", false, false);
  Park("/a/theirs", true, true);
  Park("/b/removed", true, false);
  Park("/c/stays", false, true);

  // Nothing is remembered of a change that could not be carried out, so it can be tried again.
  SetRules("[Common]\nblack_dir_prefix = \"/c\"\nblack_prefix = \"~\"\n");
  const auto db = entry_.event_db;
  entry_.event_db = std::make_shared<FileEventDB>();
  EXPECT_EQ(ReplaceFilter(entry_, false), -1);
  entry_.event_db = db;
  for (const bool merge : {false, true}) {
    SCOPED_TRACE(merge);
    ASSERT_EQ(ReplaceFilter(entry_, merge), 0);
    Strings changes;
    Strings rescans;
    for (const Event& event : All()) {
      if (event.isRescan()) {
        EXPECT_EQ(event.isMerge(), merge);
        rescans.push_back(event.m_path.str());
        continue;
      }
      const char* what = event.m_type == Event::EV_REMOVE ? "-" : "+";
      changes.push_back((event.isServerEvent() ? "<" : "") + (what + event.m_path.str()) +
                        (event.m_sync_id == INT64_MAX ? "!" : ""));
    }
    Strings expected{"+/a/new", merge ? "<+/b/gone!" : "-/b/gone", "<+/a/theirs", "<-/b/removed"};
    std::sort(changes.begin(), changes.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(changes, expected);
    // The rules are remembered: only the first call finds that two of them are gone.
    EXPECT_EQ(rescans, merge ? Strings() : (Strings{"/a", "/b"}));
  }
  // A prefix may have hidden anything.
  SetRules("");
  ASSERT_EQ(ReplaceFilter(entry_, false), 0);
  const auto events = All();
  EXPECT_EQ(
      std::count_if(events.begin(), events.end(), [](const Event& e) { return e.isRescan(); }), 1);
}

}  // namespace
}  // namespace tolven
