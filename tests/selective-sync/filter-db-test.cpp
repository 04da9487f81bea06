#include "client/filter-db.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <vector>

#include "lib/black-list2.h"
#include "lib/white-list-cpp.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

std::vector<std::string> Texts(const SelectiveSyncInfo::Set& rules) {
  std::vector<std::string> texts;
  for (const FilterInfo& rule : rules) texts.push_back(rule.filter_desc.str());
  return texts;
}

void Insert(const ustring& path, const char* sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str_utf8(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
}

using Strings = std::vector<std::string>;

TEST(SelectiveSync, FoldsAllFilterFilesOfASession) {
  const test::TempFolder folder;
  std::filesystem::create_directory((folder / "profiles").str());
  test::WriteFile(
      folder / "black",
      "[Common]\nblack_dir_prefix=\"/p\"\nblack_prefix=\"~\"\n[File]\nblack_ext=\"tmp\"\n"
      "black_suffix=\"_old\"\nblack_name=\"n\"\nblack_prefix=\"c.\"\nblack_glob=\"*x\"\n");
  test::WriteFile(folder / "white", "[File]\nwhite_ext=\"*\",\"txt\"\n");
  test::WriteFile(folder / "profiles/1", "[File]\nblack_ext=\"iso\"\nmax_size=7\n");
  test::WriteFile(folder / "profiles/2", "no filter\n");
  BlackList2 black;
  WhiteListCpp white;
  ASSERT_EQ(black.Load(folder / "black") | white.Load(folder / "white"), 0);
  SelectiveSyncInfo info;
  GetSelectiveSyncInfo(black, white, folder / "profiles", info);
  EXPECT_EQ(Texts(info.black_path), Strings{"/p"});
  EXPECT_EQ(Texts(info.black_common_prefix), Strings{"~"});
  EXPECT_EQ(Texts(info.black_name), Strings{"n"});
  EXPECT_EQ(Texts(info.black_suffix), (Strings{".iso", ".tmp", "_old"}));
  EXPECT_EQ(Texts(info.black_prefix), Strings{"c."});
  EXPECT_EQ(Texts(info.black_glob), Strings{"*x"});
  EXPECT_EQ(Texts(info.white_ext), (Strings{"*", "txt"}));
  EXPECT_EQ(info.black_size.filter_desc, "7");
  SelectiveSyncInfo unread;
  GetSelectiveSyncInfo(black, white, folder / "missing", unread);
  EXPECT_EQ(unread.black_size.filter_desc, "0");
}

TEST(SelectiveSync, KeepsTheRulesOfEachSession) {
  const test::TempFolder folder;
  const ustring path = folder / "filter";
  FilterDB db;
  SelectiveSyncInfo stored;
  EXPECT_EQ(db.getSelectiveSyncInfo(1, stored), -1);
  ASSERT_EQ(db.initialize(path), 0);
  EXPECT_EQ(db.initialize(folder / "elsewhere/x"), 0);
  SelectiveSyncInfo info;
  info.black_path = {{4, "/it's"}};
  info.black_name = {{0, "n"}};
  info.black_suffix = {{0, ".s"}};
  info.black_prefix = {{0, "p"}};
  info.black_common_prefix = {{0, "c"}};
  info.black_glob = {{0, "*g"}};
  info.white_ext = {{0, "e"}};
  info.black_size.set(0, 12);
  for (int i = 0; i < 2; ++i) ASSERT_EQ(db.setSelectiveSyncInfo(1, info), 0);
  // What another version wrote.
  Insert(path,
         "INSERT INTO filter_table VALUES (1, 0, -12, 'tmp'), (1, 0, -99, 'x');"
         "INSERT INTO white_list_table VALUES (1, 0, -1, 'y');");
  ASSERT_EQ(db.getSelectiveSyncInfo(1, stored), 0);
  EXPECT_EQ(Texts(stored.black_path), Strings{"/it's"});
  EXPECT_EQ(stored.black_path.begin()->sync_id, 4U);
  EXPECT_EQ(Texts(stored.black_name), Strings{"n"});
  EXPECT_EQ(Texts(stored.black_suffix), (Strings{".s", ".tmp"}));
  EXPECT_EQ(Texts(stored.black_prefix), Strings{"p"});
  EXPECT_EQ(Texts(stored.black_common_prefix), Strings{"c"});
  EXPECT_EQ(Texts(stored.black_glob), Strings{"*g"});
  EXPECT_EQ(Texts(stored.white_ext), Strings{"e"});
  EXPECT_EQ(stored.black_size.filter_desc, "12");

  ASSERT_EQ(db.setSelectiveSyncInfo(2, info), 0);
  ASSERT_EQ(db.removeSelectiveSyncInfo(1), 0);
  SelectiveSyncInfo none, other;
  ASSERT_EQ(db.getSelectiveSyncInfo(1, none) | db.getSelectiveSyncInfo(2, other), 0);
  EXPECT_TRUE(none.black_path.empty() && none.white_ext.empty());
  EXPECT_EQ(none.black_size.filter_desc, "");
  EXPECT_EQ(Texts(other.black_path), Strings{"/it's"});
  db.destroy();
  db.destroy();
  EXPECT_EQ(db.initialize(folder / "elsewhere/x"), -1);
}

}  // namespace
}  // namespace tolven
