// Folders on two clients and the view that they share.
#include <algorithm>
#include <filesystem>
#include <string>

#include "e2e/sync-fixture.h"

namespace tolven::test {
namespace {

TEST_F(Sync, ChangesTravelBothWays) {
  ClientProcess a(server_, "a", {.tls = true}), b(server_, "b");
  Write(a, "one.txt", "first");
  Write(a, "dir/sub/two.txt", Noise(100'000, 1));
  Write(a, "empty", "");
  fs::create_directories((a / "hollow").str());
  Tree wanted{{"one.txt", "first"},
              {"dir", "<dir>"},
              {"dir/sub", "<dir>"},
              {"empty", ""},
              {"hollow", "<dir>"}};
  wanted["dir/sub/two.txt"] = Noise(100'000, 1);
  ExpectBoth(a, b, wanted);
  Write(b, "one.txt", "second");
  wanted["one.txt"] = "second";
  ExpectBoth(a, b, wanted);
  // A rename is a removal and a creation.
  fs::rename((b / "dir").str(), (b / "folder").str());
  wanted.erase("dir");
  wanted.erase("dir/sub");
  wanted.erase("dir/sub/two.txt");
  wanted["folder"] = wanted["folder/sub"] = "<dir>";
  wanted["folder/sub/two.txt"] = Noise(100'000, 1);
  ExpectBoth(a, b, wanted);
  fs::remove_all((a / "folder").str());
  fs::remove((b / "empty").str());
  for (const char* gone : {"folder", "folder/sub", "folder/sub/two.txt", "empty"}) {
    wanted.erase(gone);
  }
  ExpectBoth(a, b, wanted);
  // A file becomes a folder and the other way round.
  fs::remove((a / "one.txt").str());
  Write(a, "one.txt/inside", "in");
  fs::remove((a / "hollow").str());
  Write(a, "hollow", "full");
  ExpectBoth(a, b, {{"one.txt", "<dir>"}, {"one.txt/inside", "in"}, {"hollow", "full"}});
}

TEST_F(Sync, BothVersionsOfAConflictSurvive) {
  ClientProcess a(server_, "here", {.tls = true}), b(server_, "there");
  Write(a, "text", "base");
  ExpectBoth(a, b, {{"text", "base"}});
  a.TellSession("pause");
  b.TellSession("pause");
  Write(a, "text", "edit of a");
  Write(b, "text", "edit of b, which is longer");
  a.TellSession("resume");
  b.TellSession("resume");
  ExpectSame(a, b, [](const Tree& tree) {
    return tree.size() == 2 && Count(tree, "edit of a") == 1 &&
           Count(tree, "edit of b, which is longer") == 1;
  });
  EXPECT_NE(Names(a.Files()).find("_Conflict"), std::string::npos);
}

TEST_F(Sync, NamesAndShapesOfEveryKind) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Tree wanted;
  const auto add = [&](const std::string& path, const std::string& content) {
    Write(a, path, content);
    wanted[path] = content;
    for (std::size_t at = path.find('/'); at != std::string::npos; at = path.find('/', at + 1)) {
      wanted[path.substr(0, at)] = "<dir>";
    }
  };
  add("Gr\xC3\xBC\xC3\x9F"
      "e",
      "composed");
  add("Gru\xCC\x88\xC3\x9F"
      "e",
      "decomposed");
  add("\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E/\xD0\xBF\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82",
      "scripts");
  add("100% [really]*?'\"", "signs");
  add(std::string(255, 'n'), "long");
  std::string deep = "deep";
  for (int i = 0; i < 60; ++i) deep += "/level" + std::to_string(i);
  add(deep + "/bottom", "deep");
  for (int i = 0; i < 400; ++i) {
    add("many/" + std::to_string(i % 7) + "/file" + std::to_string(i), std::to_string(i));
  }
  ExpectBoth(a, b, wanted);
  // The server holds no name that ends so; the file is renamed at home.
  Write(a, "blank ", "blank");
  Write(a, "dot.", "dot");
  ExpectSame(a, b, [](const Tree& tree) {
    return tree.contains("blank") && !tree.contains("blank ") && !tree.contains("dot.") &&
           Count(tree, "dot") == 1;
  });
}

TEST_F(Sync, AFreshLinkOfTwoFullFoldersMerges) {
  TempFolder folders;
  const std::string root_a = (folders / "a").str(), root_b = (folders / "b").str();
  for (const std::string& root : {root_a, root_b}) {
    fs::create_directories(root + "/shared");
    WriteFile(ustring(root + "/shared/same"), "same");
    WriteFile(ustring(root + "/shared/other"), "other of " + root);
  }
  WriteFile(ustring(root_a + "/shared/only-a"), "only a");
  WriteFile(ustring(root_b + "/shared/only-b"), "only b");
  ClientProcess a(server_, "a", {.merge = true, .root = root_a});
  ASSERT_TRUE(Eventually([&] { return a.StoredNumber() > 0; }));
  ClientProcess b(server_, "b", {.merge = true, .root = root_b});
  ExpectSame(a, b, [&](const Tree& tree) {
    return Count(tree, "same") == 1 && Count(tree, "only a") == 1 && Count(tree, "only b") == 1 &&
           Count(tree, "other of " + root_a) == 1 && Count(tree, "other of " + root_b) == 1 &&
           tree.size() == 6;
  });
}

TEST_F(Sync, GoesOnWhereKillsLeftIt) {
  ClientProcess a(server_, "a", {.tls = true}), b(server_, "b");
  Tree wanted{{"folder", "<dir>"}};
  for (int i = 0; i < 200; ++i) {
    const std::string name = "folder/file" + std::to_string(i);
    Write(a, name, Noise(5'000, static_cast<std::uint64_t>(i)));
    wanted[name] = Noise(5'000, static_cast<std::uint64_t>(i));
  }
  ASSERT_TRUE(Eventually([&] { return b.Files().size() > 20; }));
  a.Kill();
  b.Kill();
  Write(a, "folder/file0", "edited while down");
  wanted["folder/file0"] = "edited while down";
  a.Start();
  server_.Stop();
  server_.Start();
  b.Start();
  ExpectBoth(a, b, wanted);
  EXPECT_EQ(server_.Admin("check").find("damaged"), std::string::npos);
}

TEST_F(Sync, FiltersHoldBackAndBringBack) {
  ClientProcess a(server_, "a"), b(server_, "b");
  b.SetRules("[File]\nblack_ext = \"tmp\"\n");
  b.ReloadRules();
  Write(a, "from-a.tmp", "a");
  Write(b, "from-b.tmp", "b");
  Write(a, "seen", "seen");
  ASSERT_TRUE(Eventually([&] { return b.Files().contains("seen"); }));
  EXPECT_FALSE(b.Files().contains("from-a.tmp"));
  EXPECT_FALSE(a.Files().contains("from-b.tmp"));
  b.SetRules("");
  b.ReloadRules();
  ExpectBoth(a, b, {{"from-a.tmp", "a"}, {"from-b.tmp", "b"}, {"seen", "seen"}});
}

TEST_F(Sync, AFolderThatIsGoneIsNotEmptied) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Write(a, "dir/one", "one");
  Write(a, "two", "two");
  const Tree wanted{{"dir", "<dir>"}, {"dir/one", "one"}, {"two", "two"}};
  ExpectBoth(a, b, wanted);
  fs::rename(b.root(), b.root() + ".away");
  Write(a, "three", "three");
  ASSERT_TRUE(Eventually([&] { return b.Log().find("is not the folder") != std::string::npos; }));
  fs::rename(b.root() + ".away", b.root());
  Tree more = wanted;
  more["three"] = "three";
  ExpectBoth(a, b, more);
}

TEST_F(Sync, AFileMakesWayForWhatIsNewInTheFolderThatItReplaced) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Write(a, "dir/one", "1");
  const auto has = [&](const std::string& path) {
    return server_.Admin("ls team").find(path) != std::string::npos;
  };
  ASSERT_TRUE(Eventually([&] { return has("/dir/one"); }));
  // By now a has hardly been told of its own change, and hears of it together with the news.
  a.TellSession("pause");
  ASSERT_TRUE(Eventually([&] { return b.Files().contains("dir/one"); }));
  Write(b, "dir/sub/two", "2");
  ASSERT_TRUE(Eventually([&] { return has("/dir/sub/two"); }));
  fs::remove_all((a / "dir").str());
  WriteFile(a / "dir", "file");
  a.TellSession("resume");
  const auto is_right = [](const Tree& tree) {
    const auto two = tree.find("dir/sub/two");
    const bool has_file = std::any_of(tree.begin(), tree.end(), [](const auto& item) {
      return item.first.starts_with("dir_a_") && item.second == "file";
    });
    return two != tree.end() && two->second == "2" && has_file && !tree.contains("dir/one");
  };
  EXPECT_TRUE(Eventually([&] { return is_right(a.Files()) && a.Files() == b.Files(); }))
      << "a: " << Names(a.Files()) << "\nb: " << Names(b.Files());
}

// Who removed the last file of a folder may remove the folder.
TEST_F(Sync, AFolderGoesAfterItsFiles) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Write(a, "dir/one", "1");
  ExpectBoth(a, b, {{"dir", "<dir>"}, {"dir/one", "1"}});
  fs::remove((a / "dir/one").str());
  ExpectBoth(a, b, {{"dir", "<dir>"}});
  fs::remove((a / "dir").str());
  ExpectBoth(a, b, {});
}

}  // namespace
}  // namespace tolven::test
