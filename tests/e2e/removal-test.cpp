// Removals with two clients: what was removed goes everywhere, what somebody else made or changed
// meanwhile stays everywhere.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "e2e/client-process.h"
#include "e2e/server-process.h"

namespace tolven::test {
namespace {

void Write(const ClientProcess& client, const std::string& path, const std::string& content) {
  const fs::path full((client / path).str());
  fs::create_directories(full.parent_path());
  WriteFile(Utf8(full), content);
}

void Remove(const ClientProcess& client, const std::string& path) {
  fs::remove_all((client / path).str());
}

void Rename(const ClientProcess& client, const std::string& from, const std::string& to) {
  fs::rename((client / from).str(), (client / to).str());
}

// What the recycle bin holds, by paths in it.
Tree Bin(const ClientProcess& client) {
  return ReadTree(client.working_directory() + "/#ZentRecycle");
}

// How many files hold exactly this.
std::ptrdiff_t Copies(const Tree& tree, const std::string& content) {
  return std::count_if(tree.begin(), tree.end(),
                       [&](const auto& entry) { return entry.second == content; });
}

bool Has(const Tree& tree, const std::string& path) { return tree.count(path) != 0; }

class Removal : public ::testing::Test {
 protected:
  static void ExpectFiles(const ClientProcess& client, const Tree& wanted) {
    EXPECT_TRUE(Eventually([&] { return client.Files() == wanted; }))
        << ::testing::PrintToString(client.Files())
        << "\nwanted: " << ::testing::PrintToString(wanted);
  }
  // Both hold this, have heard of all that the server has, and nothing is under way any more.
  void ExpectBoth(ClientProcess& a, ClientProcess& b, const Tree& wanted) {
    ExpectFiles(a, wanted);
    ExpectFiles(b, wanted);
    const auto is_idle = [](ClientProcess& client) {
      return client.Session()["status"].asString() == "uptodate";
    };
    EXPECT_TRUE(Eventually([&] {
      return is_idle(a) && is_idle(b) && a.StoredNumber() == b.StoredNumber() &&
             a.StoredNumber() == LastNumber();
    }));
  }
  // Of the changes that the server made.
  std::uint64_t LastNumber() {
    std::istringstream lines(server_.Admin("log team"));
    std::uint64_t last = 0;
    for (std::string line; std::getline(lines, line);) {
      last = std::max<std::uint64_t>(last, std::strtoull(line.c_str(), nullptr, 10));
    }
    return last;
  }

  ServerProcess server_;
};

// How the two sides come to act without knowing of each other.
enum class Apart { kSeerDown, kSeerPaused, kRemoverDown, kNot };

std::ostream& operator<<(std::ostream& out, Apart apart) {
  return out << std::vector<const char*>{"SeerDown", "SeerPaused", "RemoverDown",
                                         "NotApart"}[static_cast<std::size_t>(apart)];
}

class RemovalRace : public Removal, public ::testing::WithParamInterface<Apart> {
 protected:
  static void Part(ClientProcess& a, ClientProcess& b) {
    if (GetParam() == Apart::kSeerDown) b.Stop();
    if (GetParam() == Apart::kRemoverDown) a.Stop();
    if (GetParam() == Apart::kSeerPaused) (void)b.TellSession("pause");
  }
  static void Join(ClientProcess& a, ClientProcess& b) {
    if (GetParam() == Apart::kSeerDown) b.Start();
    if (GetParam() == Apart::kRemoverDown) a.Start();
    if (GetParam() == Apart::kSeerPaused) (void)b.TellSession("resume");
  }
};

TEST_P(RemovalRace, WhatTheOtherSideMadeOrChangedStaysOnBoth) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Tree before;
  for (const char* folder : {"member", "created", "out", "in", "plain", "plain/sub", "back"}) {
    before[folder] = "<dir>";
  }
  for (const char* file : {"edited", "member/one", "member/two", "created/one", "out/one",
                           "out/two", "in/one", "other", "plain/sub/one", "back/one", "back/two"}) {
    before[file] = std::string("first ") + file;
    Write(a, file, before[file]);
  }
  ExpectBoth(a, b, before);

  Part(a, b);
  for (const char* path : {"edited", "member", "created", "out", "in", "plain"}) Remove(a, path);
  Write(b, "edited", "an edit of a removed file");
  Write(b, "member/two", "an edit of a member");
  Write(b, "created/new/deep", "a creation below");
  Rename(b, "out/one", "kept");
  Rename(b, "other", "in/other");
  // The other way round.
  Write(a, "back/one", "an edit against a removal");
  Remove(b, "back");
  Join(a, b);

  const auto met = [&] {
    const Tree tree = a.Files();
    if (tree != b.Files()) return false;
    for (const char* stays :
         {"an edit of a removed file", "an edit of a member", "a creation below", "first out/one",
          "first other", "an edit against a removal"}) {
      if (Copies(tree, stays) != 1) return false;
    }
    for (const char* gone : {"member/one", "created/one", "out", "in/one", "other", "plain",
                             "plain/sub/one", "back/two"}) {
      if (Has(tree, gone)) return false;
    }
    return Has(tree, "created/new/deep") && Has(tree, "kept") && Has(tree, "in/other");
  };
  EXPECT_TRUE(Eventually(met)) << "a: " << ::testing::PrintToString(a.Files())
                               << "\nb: " << ::testing::PrintToString(b.Files());
  // Nothing was destroyed where the removal was only heard of.
  const Tree bin = Bin(b);
  for (const char* kept :
       {"first member/one", "first created/one", "first in/one", "first plain/sub/one"}) {
    EXPECT_EQ(Copies(bin, kept), 1) << kept << " in " << ::testing::PrintToString(bin);
  }
}

INSTANTIATE_TEST_SUITE_P(Removal, RemovalRace,
                         ::testing::Values(Apart::kSeerDown, Apart::kSeerPaused,
                                           Apart::kRemoverDown, Apart::kNot),
                         ::testing::PrintToStringParamName());

// Each removal of a member raises the folder's number on the server.
TEST_F(Removal, MembersThenFolder) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Tree wanted{{"docs", "<dir>"}, {"docs/sub", "<dir>"}};
  for (const char* file : {"docs/one", "docs/two", "docs/sub/three", "stays"}) {
    wanted[file] = file;
    Write(a, file, file);
  }
  ExpectBoth(a, b, wanted);
  Remove(a, "docs/one");
  wanted.erase("docs/one");
  ExpectBoth(a, b, wanted);
  Remove(a, "docs");
  ExpectBoth(a, b, {{"stays", "stays"}});
  // The folder may come back.
  Write(b, "docs/two", "again");
  ExpectBoth(a, b, {{"stays", "stays"}, {"docs", "<dir>"}, {"docs/two", "again"}});
}

// A client's own upload makes a folder look newer than all that the client knows of it.
TEST_F(Removal, WaitsForChangesBelowThatAreNotKnownYet) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Write(a, "docs/one", "one");
  const Tree first{{"docs", "<dir>"}, {"docs/one", "one"}};
  ExpectBoth(a, b, first);
  Write(b, "docs/news", "news");
  EXPECT_TRUE(
      Eventually([&] { return server_.Admin("ls team").find("docs/news") != std::string::npos; }));
  Write(a, "docs/own", "own");
  EXPECT_TRUE(
      Eventually([&] { return server_.Admin("ls team").find("docs/own") != std::string::npos; }));
  Remove(a, "docs/one");
  Remove(a, "docs/own");
  std::error_code error;
  fs::remove((a / "docs").str(), error);  // unless the news are here by now
  ExpectBoth(a, b, {{"docs", "<dir>"}, {"docs/news", "news"}});
}

// Names that sort between a folder and what is in it.
TEST_F(Removal, LeavesTwinsAlone) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Tree all{{"docs", "<dir>"}, {"docs - Copy", "<dir>"}, {"docs!", "<dir>"}, {"Docs", "<dir>"}};
  for (const char* file :
       {"docs/one", "docs - Copy/one", "docs!/one", "docs.zip", "docs-old", "Docs/one"}) {
    all[file] = file;
    Write(a, file, file);
  }
  ExpectBoth(a, b, all);
  const Tree before = all;
  // As the watcher sees it.
  Remove(a, "docs");
  all.erase("docs");
  all.erase("docs/one");
  ExpectBoth(a, b, all);
  Tree bin = Bin(b);
  EXPECT_EQ(Copies(bin, "docs/one"), 1) << ::testing::PrintToString(bin);
  EXPECT_EQ(bin.size(), 2u) << ::testing::PrintToString(bin);
  Write(b, "docs/one", "docs/one");
  ExpectBoth(a, b, before);
  // As a comparison with the database sees it.
  a.Stop();
  Remove(a, "docs");
  Remove(a, "docs.zip");
  a.Start();
  all.erase("docs.zip");
  ExpectBoth(a, b, all);
  bin = Bin(b);
  EXPECT_EQ(Copies(bin, "docs.zip"), 1) << ::testing::PrintToString(bin);
  for (const char* twin : {"docs - Copy/one", "docs!/one", "docs-old", "Docs/one"}) {
    EXPECT_EQ(Copies(bin, twin), 0) << twin;
  }
}

// What a client's filters keep out of the sync is not the other client's to remove.
TEST_F(Removal, SparesWhatFiltersKeepOut) {
  ClientProcess a(server_, "a"), b(server_, "b");
  b.SetRules("[File]\nblack_ext = \"tmp\"\n");
  b.ReloadRules();
  for (const char* file : {"here/one", "there/one", "there/big.tmp"}) Write(a, file, file);
  Write(b, "stays.tmp", "unseen");
  ExpectFiles(b, {{"here", "<dir>"},
                  {"here/one", "here/one"},
                  {"there", "<dir>"},
                  {"there/one", "there/one"},
                  {"stays.tmp", "unseen"}});
  Write(b, "here/own.tmp", "own");
  // The server's copy of big.tmp is held back from b, too.
  Write(b, "mark", "mark");
  EXPECT_TRUE(Eventually([&] { return Has(a.Files(), "mark"); }));
  Remove(a, "here");
  Remove(b, "there");
  EXPECT_TRUE(Eventually([&] { return !Has(b.Files(), "here/one"); }));
  ExpectFiles(
      b, {{"here", "<dir>"}, {"here/own.tmp", "own"}, {"mark", "mark"}, {"stays.tmp", "unseen"}});
  EXPECT_TRUE(Eventually([&] { return !Has(a.Files(), "there/one"); }));
  ExpectFiles(a, {{"there", "<dir>"}, {"there/big.tmp", "there/big.tmp"}, {"mark", "mark"}});
  EXPECT_EQ(Copies(Bin(b), "here/one"), 1);
  // Once the rule goes, it is here.
  b.SetRules("");
  b.ReloadRules();
  EXPECT_TRUE(Eventually([&] { return Has(b.Files(), "there/big.tmp"); }));
}

// A file in the place of a folder takes nothing from the server that its user has not seen.
class Replacement : public Removal, public ::testing::WithParamInterface<bool> {
 protected:
  // Does so while the client runs, or while it does not.
  static void Replace(ClientProcess& client, const std::string& folder) {
    if (!GetParam()) client.Stop();
    Remove(client, folder);
    Write(client, folder, "a file by now");
    if (!GetParam()) client.Start();
  }
  // Both have the same, with each of these once.
  static void ExpectMet(const ClientProcess& a, const ClientProcess& b,
                        const std::vector<std::string>& contents) {
    EXPECT_TRUE(Eventually([&] {
      const Tree tree = a.Files();
      return tree == b.Files() &&
             std::all_of(contents.begin(), contents.end(),
                         [&](const std::string& content) { return Copies(tree, content) == 1; });
    })) << "a: "
        << ::testing::PrintToString(a.Files()) << "\nb: " << ::testing::PrintToString(b.Files());
  }
};

TEST_P(Replacement, SparesWhatFiltersKeepOut) {
  ClientProcess a(server_, "a"), b(server_, "b");
  b.SetRules("[File]\nblack_ext = \"tmp\"\n");
  b.ReloadRules();
  for (const char* file : {"docs/one", "docs/big.tmp", "mark"}) Write(a, file, file);
  ExpectFiles(b, {{"docs", "<dir>"}, {"docs/one", "docs/one"}, {"mark", "mark"}});
  EXPECT_TRUE(
      Eventually([&] { return b.StoredNumber() != 0 && a.StoredNumber() == b.StoredNumber(); }));
  Replace(b, "docs");
  EXPECT_TRUE(Eventually([&] {
    const Tree tree = a.Files();
    return Copies(tree, "a file by now") == 1 && !Has(tree, "docs/one");
  })) << ::testing::PrintToString(a.Files());
  EXPECT_TRUE(Has(a.Files(), "docs/big.tmp"));
  b.SetRules("");
  b.ReloadRules();
  ExpectMet(a, b, {"docs/big.tmp", "mark", "a file by now"});
}

// The own upload makes the folder look newer than all that is known of it.
TEST_P(Replacement, SparesWhatIsNotKnownYet) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Write(a, "docs/one", "one");
  ExpectBoth(a, b, {{"docs", "<dir>"}, {"docs/one", "one"}});
  const auto await = [&](const char* path) {
    EXPECT_TRUE(
        Eventually([&] { return server_.Admin("ls team").find(path) != std::string::npos; }));
  };
  Write(b, "docs/news", "news");
  await("docs/news");
  Write(a, "docs/own", "own");
  await("docs/own");
  Replace(a, "docs");
  ExpectMet(a, b, {"news", "a file by now"});
}

INSTANTIATE_TEST_SUITE_P(Replacement, Replacement, ::testing::Bool(), [](const auto& test) {
  return test.param ? "WhileTheClientRuns" : "WhileItDoesNot";
});

// Each user removes a folder in which there is something that the other one must not see or change.
class RemovalAccess : public Removal {
 protected:
  RemovalAccess() {
    server_.Admin("user add bob --uid 1001");
    bobs_ = server_.Admin("session bob");
    bobs_.pop_back();
  }
  // Two folders, each with a member that is bob's to change, one that he may read and one that he
  // must not see.
  Tree Fill(const ClientProcess& ada) {
    Tree all;
    for (const std::string folder : {"by-ada", "by-bob"}) {
      all[folder] = all[folder + "/sub"] = "<dir>";
      for (const char* file : {"/open", "/sub/fixed", "/sub/secret"}) {
        all[folder + file] = folder + file;
        Write(ada, folder + file, folder + file);
      }
    }
    EXPECT_TRUE(Eventually([&] {
      return Serves("/by-bob/sub/secret") && Serves("/by-ada/open") &&
             Serves("/by-ada/sub/secret") && Serves("/by-bob/open") &&
             Serves("/by-bob/sub/fixed") && Serves("/by-ada/sub/fixed");
    }));
    for (const std::string folder : {"/by-ada", "/by-bob"}) {
      server_.Admin("acl set team " + folder + "/sub/fixed --user 1001=r --user 1000=rw");
      server_.Admin("acl set team " + folder + "/sub/secret --user 1001=none --user 1000=rw");
    }
    return all;
  }
  bool Serves(const std::string& path) {
    return server_.Admin("ls team").find(path) != std::string::npos;
  }

  std::string bobs_;
};

TEST_F(RemovalAccess, MembersThatAUserMayNotTouchStay) {
  ClientProcess ada(server_, "ada");
  Tree all = Fill(ada);
  ClientProcess bob(server_, "bob", {.token = bobs_});
  Tree seen = all;
  for (const char* secret : {"by-ada/sub/secret", "by-bob/sub/secret"}) seen.erase(secret);
  ExpectFiles(bob, seen);

  // By itself first: a folder that goes in one piece is refused in one piece.
  Remove(bob, "by-bob/open");
  all.erase("by-bob/open");
  ExpectFiles(ada, all);
  Remove(bob, "by-bob");
  Write(bob, "mark", "mark");
  all["mark"] = "mark";
  ExpectFiles(ada, all);
  // Here they stay away: bob's removal waits for the right to it.
  std::erase_if(seen, [](const auto& item) { return item.first.starts_with("by-bob"); });
  seen["mark"] = "mark";
  ExpectFiles(bob, seen);

  Remove(ada, "by-ada");
  for (Tree* tree : {&all, &seen}) {
    std::erase_if(*tree, [](const auto& item) { return item.first.starts_with("by-ada"); });
  }
  ExpectFiles(ada, all);
  ExpectFiles(bob, seen);
  const Tree bin = Bin(bob);
  EXPECT_EQ(Copies(bin, "by-ada/open"), 1) << ::testing::PrintToString(bin);
  EXPECT_EQ(Copies(bin, "by-ada/sub/secret"), 0);
}

TEST_F(Removal, GoesToTheRecycleBinWithItsRecord) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Write(a, "file", "a file's content");
  Write(a, "tree/sub/leaf", "a leaf's content");
  ExpectBoth(a, b,
             {{"file", "a file's content"},
              {"tree", "<dir>"},
              {"tree/sub", "<dir>"},
              {"tree/sub/leaf", "a leaf's content"}});
  Remove(a, "file");
  fs::rename((a / "tree").str(), a.config() + "/tree");  // out of the session's folder
  ExpectBoth(a, b, {});
  const Tree bin = Bin(b);
  EXPECT_EQ(Copies(bin, "a file's content"), 1) << ::testing::PrintToString(bin);
  // Each file in the bin can be found by its sum, under its place in the bin.
  std::vector<std::string> rows;
  EXPECT_TRUE(Eventually([&] {
    rows.clear();
    b.Query("SELECT path FROM recycle_bin_table WHERE fileCheckSum <> '' ORDER BY fileSize;",
            [&](sqlite3_stmt* row) {
              rows.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(row, 0)));
            });
    return rows.size() == 2;
  }));
  ASSERT_EQ(rows.size(), 2u);
  for (const std::string& row : rows) EXPECT_TRUE(Has(bin, row.substr(1))) << row;
  EXPECT_TRUE(rows[1].ends_with("/sub/leaf") || rows[0].ends_with("/sub/leaf"));
}

}  // namespace
}  // namespace tolven::test
