// Folders on two clients and the view that they share.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "e2e/client-process.h"
#include "e2e/server-process.h"

namespace tolven::test {
namespace {

class Sync : public ::testing::Test {
 protected:
  void Write(const ClientProcess& client, const std::string& path, const std::string& content) {
    const fs::path full((client / path).str());
    fs::create_directories(full.parent_path());
    WriteFile(ustring(full.string()), content);
  }
  // Both folders come to hold exactly this.
  void ExpectBoth(const ClientProcess& a, const ClientProcess& b, const Tree& wanted) {
    EXPECT_TRUE(Eventually([&] { return a.Files() == wanted && b.Files() == wanted; }))
        << "a: " << ::testing::PrintToString(a.Files())
        << "\nb: " << ::testing::PrintToString(b.Files())
        << "\nwanted: " << ::testing::PrintToString(wanted);
  }

  ServerProcess server_;
};

TEST_F(Sync, ChangesTravelBothWays) {
  ClientProcess a(server_, "a", {.tls = true}), b(server_, "b");
  Write(a, "one.txt", "first");
  Write(a, "dir/sub/two.txt", std::string(100'000, 'x'));
  Write(a, "empty", "");
  fs::create_directories((a / "hollow").str());
  Tree wanted{{"one.txt", "first"},
              {"dir", "<dir>"},
              {"dir/sub", "<dir>"},
              {"empty", ""},
              {"hollow", "<dir>"}};
  wanted["dir/sub/two.txt"] = std::string(100'000, 'x');
  ExpectBoth(a, b, wanted);
  // Above the limit of simple uploads, and its change as a delta.
  std::string large(3'000'000, '\0');
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i * i / 251);
  Write(b, "large", large);
  wanted["large"] = large;
  ExpectBoth(a, b, wanted);
  large.insert(1'500'000, "in the middle");
  Write(a, "large", large);
  Write(b, "one.txt", "second");
  wanted["large"] = large;
  wanted["one.txt"] = "second";
  ExpectBoth(a, b, wanted);
  // A rename is a removal and a creation.
  fs::rename((b / "dir").str(), (b / "folder").str());
  wanted.erase("dir");
  wanted.erase("dir/sub");
  wanted["folder"] = wanted["folder/sub"] = "<dir>";
  wanted["folder/sub/two.txt"] = wanted["dir/sub/two.txt"];
  wanted.erase("dir/sub/two.txt");
  ExpectBoth(a, b, wanted);
  fs::remove_all((a / "folder").str());
  fs::remove((b / "empty").str());
  for (const char* gone : {"folder", "folder/sub", "folder/sub/two.txt", "empty"}) {
    wanted.erase(gone);
  }
  ExpectBoth(a, b, wanted);
}

// A file took the place of a folder in which somebody else made something.
TEST_F(Sync, AFileMakesWayForWhatIsNewInTheFolderThatItReplaced) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Write(a, "dir/one", "1");
  ExpectBoth(a, b, {{"dir", "<dir>"}, {"dir/one", "1"}});
  a.TellSession("pause");
  Write(b, "dir/sub/two", "2");
  ASSERT_TRUE(Eventually(
      [&] { return server_.Admin("ls team").find("/dir/sub/two") != std::string::npos; }));
  fs::remove_all((a / "dir").str());
  WriteFile(a / "dir", "file");
  a.TellSession("resume");
  const auto has_both = [](const Tree& tree) {
    const auto two = tree.find("dir/sub/two");
    const bool has_file = std::any_of(tree.begin(), tree.end(), [](const auto& item) {
      return item.first.starts_with("dir_a_") && item.second == "file";
    });
    return two != tree.end() && two->second == "2" && has_file && !tree.contains("dir/one");
  };
  EXPECT_TRUE(Eventually([&] { return has_both(a.Files()) && a.Files() == b.Files(); }))
      << "a: " << ::testing::PrintToString(a.Files())
      << "\nb: " << ::testing::PrintToString(b.Files());
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
