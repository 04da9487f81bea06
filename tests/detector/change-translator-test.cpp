#include "client/windows/change-translator.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace tolven {
namespace {

using Node = ChangeWorld::Node;

class FakeWorld : public ChangeWorld {
 public:
  Node Look(const ustring& full_path) override {
    const auto found = nodes.find(full_path.str());
    return found == nodes.end() ? Node::MISSING : found->second;
  }
  ustring LongPath(const ustring& full_path) override {
    const auto found = long_paths.find(full_path.str());
    return found == long_paths.end() ? full_path : ustring(found->second);
  }
  int FindRemembered(std::uint64_t sess_id, const ustring& path, bool& is_dir) override {
    if (sess_id != 7) return -1;
    const auto found = rows.find(path.str());
    if (found == rows.end()) return 0;
    is_dir = found->second;
    return 1;
  }
  void RecreateWorkingDirectory(std::uint64_t, const ustring&) override { ++recreated; }

  std::map<std::string, Node> nodes;
  std::map<std::string, std::string> long_paths;
  std::map<std::string, bool> rows;  // whether a directory
  int recreated = 0;
};

// What a row of records gives, as "TYPE path[/ for a directory][ > new path]".
std::string Feed(FakeWorld& world, const std::vector<platform::WatchRecord>& records,
                 std::uint64_t sess_id = 7, const char* root = "/home/me") {
  ChangeTranslator translator(world, {"/home/me/.local/share/Tolvenhub"});
  std::string text;
  for (const platform::WatchRecord& record : records) {
    Event event;
    if (translator.Translate(event, sess_id, root, record) != 0) continue;
    EXPECT_EQ(event.m_sess_id, sess_id);
    if (!text.empty()) text += ", ";
    text += std::string(Event::TypeText(event.m_type)).substr(3) + " " + event.m_path.str();
    if (event.isDir()) text += "/";
    if (!event.m_opt.empty()) text += " > " + event.m_opt.str();
  }
  return text;
}

TEST(ChangeTranslator, TellsWhatEachRecordMeans) {
  FakeWorld world;
  world.nodes = {{"/home/me/f", Node::FILE},
                 {"/home/me/d", Node::DIRECTORY},
                 {"/home/me/d/g", Node::FILE},
                 {"/home/me/link", Node::NO_USER_DATA},
                 {"/home/me/.ZentrovaWorkingDirectoryX", Node::FILE},
                 {"/home/me/.local/share/Tolvenhub/db", Node::FILE},
                 {"/home/me/long name", Node::FILE}};
  world.rows = {{"/gone", false}, {"/gone dir", true}, {"/old", false}, {"/link", false}};
  world.long_paths = {{"/home/me/LONGNA~1", "/home/me/long name"}};
  const struct {
    std::vector<platform::WatchRecord> records;
    const char* events;
  } rows[] = {
      {{{1, "f"}}, "ADD /f"},
      {{{3, "f"}}, "MODIFY /f"},
      {{{1, "d"}}, "ADD /d/"},
      {{{3, "d"}}, ""},  // a directory's content changed
      {{{1, "d/g"}}, "ADD /d/g"},
      {{{2, "gone"}}, "REMOVE /gone"},
      {{{2, "gone dir"}}, "REMOVE /gone dir/"},
      {{{2, "never known"}}, ""},
      {{{2, "f"}}, "REMOVE /f"},  // there again already; the tree merges what follows
      {{{1, "link"}, {3, "link"}}, ""},
      {{{4, "old"}, {5, "f"}}, "RENAME /old > /f"},
      {{{4, "gone dir"}, {5, "d"}}, "RENAME /gone dir/ > /d"},
      {{{5, "f"}}, "ADD /f"},
      {{{4, "old"}, {5, "link"}}, "REMOVE /old"},
      {{{4, "old"}, {5, ".ZentrovaWorkingDirectory/x"}}, "REMOVE /old"},
      {{{4, ".ZentrovaWorkingDirectory/x"}, {5, "f"}}, "ADD /f"},
      {{{4, "gone"}, {4, ".ZentrovaWorkingDirectory/x"}, {5, "f"}}, "ADD /f"},
      {{{1, ".zentrovaworkingdirectory/x"}}, ""},
      {{{1, "d/.ZentrovaWorkingDirectory"}}, ""},
      {{{1, ".ZentrovaWorkingDirectoryX"}}, "ADD /.ZentrovaWorkingDirectoryX"},
      {{{1, ".local/share/Tolvenhub/db"}}, ""},
      {{{3, "LONGNA~1"}}, "MODIFY /long name"},
      {{{9, "f"}}, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.records.front().name.str());
    EXPECT_EQ(Feed(world, row.records), row.events);
  }
  EXPECT_EQ(world.recreated, 0);
  EXPECT_EQ(Feed(world, {{2, "gone"}}, 8), "");  // a session that nobody knows
}

TEST(ChangeTranslator, KnowsPrivateFoldersBelowARootThatEndsInASeparator) {
  FakeWorld world;
  world.nodes = {{"/home/me/f", Node::FILE}, {"/home/me/.local/share/Tolvenhub/db", Node::FILE}};
  world.long_paths = {{"/home/ME~1/f", "/home/me/f"}};
  EXPECT_EQ(Feed(world, {{1, "home/me/.local/share/Tolvenhub/db"}}, 7, "/"), "");
  EXPECT_EQ(Feed(world, {{1, "home/ME~1/f"}}, 7, "/"), "ADD /home/me/f");
}

TEST(ChangeTranslator, HasTheWorkingDirectoryMadeAnew) {
  FakeWorld world;
  for (const char* name : {".ZentrovaWorkingDirectory", ".ZentrovaWorkingDirectory/#ZentRecycle"}) {
    EXPECT_EQ(Feed(world, {{2, name}, {4, name}, {1, name}}), "");
  }
  EXPECT_EQ(world.recreated, 4);
  EXPECT_EQ(Feed(world, {{2, ".ZentrovaWorkingDirectory/x"}, {2, "d/.ZentrovaWorkingDirectory"}}),
            "");
  EXPECT_EQ(world.recreated, 4);
}

TEST(ChangeTranslator, SplitsARenameIntoARemovalAndACreation) {
  Event rename;
  rename.m_type = Event::EV_RENAME;
  rename.m_path = "/a";
  rename.m_opt = "/b";
  rename.setDir();
  const std::vector<Event> parts = SplitRename(rename);
  ASSERT_EQ(parts.size(), 2U);
  EXPECT_TRUE(parts[0].m_type == Event::EV_REMOVE && parts[0].m_path == "/a");
  EXPECT_TRUE(parts[1].m_type == Event::EV_CREATE && parts[1].m_path == "/b");
  EXPECT_TRUE(parts[0].isDir() && parts[1].isDir());
  EXPECT_TRUE(parts[0].m_opt.empty() && parts[1].m_opt.empty());
}

}  // namespace
}  // namespace tolven
