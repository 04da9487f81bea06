#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "server/protocol/small-content-mover.h"
#include "server/store/file-content-store.h"
#include "server/store/sha256.h"
#include "server/store/sqlite-metadata.h"
#include "support/program.h"
#include "support/temp-folder.h"

namespace tolven::server {
namespace {

std::string HashOf(const std::string& text) {
  Sha256 sum;
  sum.Update(text.data(), text.size());
  return sum.Finish();
}

class StoreTest : public ::testing::Test {
 protected:
  StoreTest() {
    EXPECT_EQ(metadata_.Open(folder_ / "metadata.sqlite"), 0);
    EXPECT_EQ(contents_.Open(), 0);
    view_.name = "v";
    EXPECT_EQ(metadata_.AddView(view_), 0);
  }
  ~StoreTest() override { platform::SetFiles(nullptr); }

  Content Store(const std::string& text) {
    Content content;
    const ustring file = folder_ / "incoming";
    test::WriteFile(file, text);
    EXPECT_EQ(contents_.Add(file, "md4 of " + text, content), 0);
    return content;
  }
  Outcome PutFile(const std::string& path, const std::string& text, std::uint64_t base = 0,
                  std::uint64_t max_id = 0) {
    Put put;
    put.path = path;
    put.base = base;
    put.max_id = max_id;
    put.content = Store(text);
    put.mtime = mtime_;
    return metadata_.PutNode(view_.id, put, made_);
  }
  Outcome PutDir(const std::string& path, std::uint64_t base = 0) {
    Put put;
    put.path = path;
    put.base = base;
    put.is_dir = true;
    return metadata_.PutNode(view_.id, put, made_);
  }
  Outcome Remove(const std::string& path, std::uint64_t sync_id, std::uint64_t max_id) {
    return metadata_.RemoveNode(view_.id, path, sync_id, max_id, made_);
  }
  Node Find(const std::string& path) {
    Node node;
    metadata_.FindNode(view_.id, path, node);
    return node;
  }
  // "number path" of what changed, "-" in front of a removal.
  std::string Changes(std::uint64_t after, const std::string& folder = "/",
                      std::size_t limit = 100) {
    std::vector<Node> nodes;
    EXPECT_EQ(metadata_.ListChanges(view_.id, folder, after, limit, nodes), 0);
    std::string text;
    for (const Node& node : nodes) {
      text += (node.is_removed ? " -" : " ") + std::to_string(node.sync_id) + node.path;
    }
    return text;
  }
  std::uint64_t Used() {
    std::uint64_t bytes = 0;
    EXPECT_EQ(metadata_.UsedBytes(view_.id, "/", bytes), 0);
    return bytes;
  }
  void ExpectSound() {
    std::vector<std::string> problems;
    EXPECT_EQ(metadata_.Check(problems), 0);
    EXPECT_EQ(problems, std::vector<std::string>());
  }

  test::TempFolder folder_;
  SqliteMetadata metadata_{3};
  FileContentStore contents_{folder_ / "contents"};
  View view_;
  Node made_;
  std::uint32_t mtime_ = 5;
};

TEST_F(StoreTest, EveryChangeHasItsNumberAndItsConditions) {
  EXPECT_EQ(PutFile("/docs/a", "one"), Outcome::kDone);
  EXPECT_EQ(PutFile("/docs.zip", "zip"), Outcome::kDone);
  EXPECT_EQ(Changes(0), " 1/ 2/docs 3/docs/a 4/docs.zip");
  EXPECT_EQ(Changes(1, "/docs"), " 2/docs 3/docs/a");
  EXPECT_EQ(Changes(1, "/", 2), " 2/docs 3/docs/a");
  EXPECT_EQ(Find("/docs").max_id, 3U);
  EXPECT_EQ(Find("/").max_id, 4U);

  EXPECT_EQ(PutFile("/docs/a", "one"), Outcome::kDone);  // the same content
  EXPECT_EQ(made_.sync_id, 3U);
  EXPECT_EQ(PutDir("/docs"), Outcome::kDone);
  EXPECT_EQ(PutFile("/docs/a", "two"), Outcome::kConflict);
  EXPECT_EQ(PutFile("/docs/a/below", "x"), Outcome::kConflict);
  EXPECT_EQ(PutFile("/docs/a", "two", 2), Outcome::kBaseChanged);
  EXPECT_EQ(PutFile("/gone", "x", 9), Outcome::kNoBase);
  EXPECT_EQ(PutFile("/docs/a", "two", 3), Outcome::kDone);
  EXPECT_EQ(made_.sync_id, 5U);
  EXPECT_EQ(made_.mtime, 5U);

  EXPECT_EQ(Remove("/docs/a", 3, 3), Outcome::kModified);
  EXPECT_EQ(Remove("/docs", 2, 4), Outcome::kModified);
  EXPECT_EQ(Remove("/missing", 1, 1), Outcome::kNotFound);
  EXPECT_EQ(Remove("/", 1, 99), Outcome::kFailed);
  EXPECT_EQ(Used(), 6U);
  EXPECT_EQ(Remove("/docs", 2, 5), Outcome::kDone);
  EXPECT_EQ(Changes(5), " -6/docs");
  EXPECT_TRUE(Find("/docs/a").is_removed);
  EXPECT_EQ(Used(), 3U);
  // What was a folder comes back as a file, and the other way round.
  EXPECT_EQ(PutFile("/docs", "text"), Outcome::kDone);
  EXPECT_EQ(PutDir("/docs", made_.sync_id), Outcome::kDone);
  EXPECT_EQ(PutFile("/docs/b", "b"), Outcome::kDone);
  const Node docs = Find("/docs");
  // What came and went meanwhile is no loss to who has not heard of it.
  EXPECT_EQ(PutFile("/docs/c", "c"), Outcome::kDone);
  EXPECT_EQ(PutFile("/docs", "text", docs.sync_id, docs.max_id), Outcome::kBaseChanged);
  EXPECT_EQ(Remove("/docs/c", made_.sync_id, 0), Outcome::kDone);
  EXPECT_EQ(PutFile("/docs", "text", docs.sync_id, docs.max_id - 1), Outcome::kBaseChanged);
  EXPECT_FALSE(Find("/docs/b").is_removed);
  EXPECT_EQ(PutFile("/docs", "text", docs.sync_id, docs.max_id), Outcome::kDone);
  EXPECT_TRUE(Find("/docs/b").is_removed);
  EXPECT_EQ(Used(), 7U);
  // The same content of another time.
  const std::uint64_t before = made_.sync_id;
  mtime_ = 6;
  EXPECT_EQ(PutFile("/docs", "text"), Outcome::kDone);
  EXPECT_GT(made_.sync_id, before);
  EXPECT_EQ(Find("/docs").mtime, 6U);
  EXPECT_EQ(Used(), 7U);
  ExpectSound();
}

// Who was away while a folder went and came back has to hear what did not come back with it.
TEST_F(StoreTest, ARemovalBelowAFolderIsToldAfterTheFolderIsBack) {
  ASSERT_EQ(PutFile("/d/a", "a"), Outcome::kDone);
  ASSERT_EQ(PutFile("/d/sub/b", "b"), Outcome::kDone);
  ASSERT_EQ(PutFile("/d/c", "c"), Outcome::kDone);
  const std::uint64_t seen = made_.sync_id;  // 6
  ASSERT_EQ(Remove("/d", 2, seen), Outcome::kDone);
  ASSERT_EQ(PutFile("/d/c", "c again"), Outcome::kDone);
  EXPECT_EQ(Changes(seen), " 8/d -9/d/a -11/d/sub -12/d/sub/b 13/d/c");
  EXPECT_EQ(Find("/d").max_id, 13U);
  // The same for a file that becomes a folder again; a folder that was there all the time tells
  // nothing anew.
  ASSERT_EQ(PutFile("/d", "text", 8, 13), Outcome::kDone);
  ASSERT_EQ(PutDir("/d", made_.sync_id), Outcome::kDone);
  EXPECT_EQ(Changes(13), " 15/d -16/d/a -17/d/c -18/d/sub -19/d/sub/b");
  EXPECT_EQ(made_.max_id, 19U);
  ASSERT_EQ(PutDir("/d", 15), Outcome::kDone);
  EXPECT_EQ(Changes(19), " 20/d");
  EXPECT_EQ(Find("/").max_id, 20U);
  ExpectSound();
}

TEST_F(StoreTest, KeepsOlderVersionsAndBringsThemBack) {
  std::uint64_t base = 0;
  std::vector<std::uint64_t> numbers;
  for (const char* text : {"v1", "v2", "v3", "v4", "v5"}) {
    ASSERT_EQ(PutFile("/f", text, base), Outcome::kDone);
    numbers.push_back(base = made_.sync_id);
  }
  Node node;
  EXPECT_EQ(metadata_.FindVersion(view_.id, "/f", numbers[0], node), 0);
  EXPECT_EQ(metadata_.FindVersion(view_.id, "/f", numbers[1], node), 1);
  EXPECT_EQ(test::ReadFile(contents_.PathOf(node.content.sha256)), "v2");
  std::vector<Node> versions;
  EXPECT_EQ(metadata_.ListVersions(view_.id, "/f", versions), 0);
  EXPECT_EQ(versions.size(), 4U);  // three older ones
  EXPECT_EQ(metadata_.Restore(view_.id, "/f", numbers[0], made_), Outcome::kNotFound);
  EXPECT_EQ(metadata_.SetAcl(view_.id, "/f", "1 0 0 "), Outcome::kDone);
  base = Find("/f").sync_id;
  EXPECT_EQ(Remove("/f", base, base), Outcome::kDone);
  EXPECT_EQ(metadata_.Restore(view_.id, "/f", numbers[2], made_), Outcome::kDone);
  EXPECT_EQ(Find("/f").acl, "1 0 0 ");
  EXPECT_EQ(test::ReadFile(contents_.PathOf(Find("/f").content.sha256)), "v3");
  ASSERT_EQ(PutFile("/again", "v5"), Outcome::kDone);
  ASSERT_EQ(PutFile("/again", "v6", made_.sync_id), Outcome::kDone);
  // By one at a time, as if there were many.
  const auto known = [&](std::uint64_t view, std::uint64_t size) {
    std::string paths;
    for (KnownContent last;; paths += last.path) {
      std::vector<KnownContent> found;
      EXPECT_EQ(metadata_.ListKnownContents(view, "md4 of v5", size, last, 1, found), 0);
      if (found.empty()) return paths;
      last = found[0];
    }
  };
  EXPECT_EQ(known(view_.id, 2), "/again/f");
  EXPECT_EQ(known(view_.id, 3) + known(view_.id + 1, 2), "");
  ExpectSound();
}

TEST_F(StoreTest, KeepsAViewWithinItsQuota) {
  View small;
  small.name = "small";
  small.quota = 10;
  ASSERT_EQ(metadata_.AddView(small), 0);
  EXPECT_EQ(metadata_.AddView(small), -1);
  view_ = small;
  EXPECT_EQ(PutFile("/a", "12345678"), Outcome::kDone);
  EXPECT_EQ(PutFile("/b", "123"), Outcome::kQuota);
  EXPECT_EQ(PutDir("/d"), Outcome::kDone);
  EXPECT_EQ(PutFile("/a", "1234567890", Find("/a").sync_id), Outcome::kDone);
  EXPECT_EQ(PutFile("/a", "12345678901", Find("/a").sync_id), Outcome::kQuota);
  EXPECT_EQ(Used(), 10U);

  // A whole folder makes room for the file that takes its place, what lies beside it does not.
  EXPECT_EQ(Remove("/a", Find("/a").sync_id, 0), Outcome::kDone);
  EXPECT_EQ(PutFile("/d/e/one", "1234"), Outcome::kDone);
  EXPECT_EQ(PutFile("/d/two", "12"), Outcome::kDone);
  EXPECT_EQ(PutFile("/d - copy", "123"), Outcome::kDone);
  EXPECT_EQ(PutFile("/d", "12345678", Find("/d").sync_id, Find("/d").max_id), Outcome::kQuota);
  EXPECT_EQ(PutFile("/d", "1234567", Find("/d").sync_id, Find("/d").max_id), Outcome::kDone);
  EXPECT_EQ(Used(), 10U);
  ExpectSound();
}

TEST_F(StoreTest, KnowsSessionsByTheirHashAlone) {
  User ada;
  ada.name = "ada";
  ada.uid = 7;
  ada.groups = {3, 1};
  ASSERT_EQ(metadata_.AddUser(ada), 0);
  EXPECT_EQ(metadata_.AddUser(ada), -1);
  std::string first, second;
  ASSERT_EQ(metadata_.NewSession("ada", first) | metadata_.NewSession("ada", second), 0);
  EXPECT_EQ(metadata_.NewSession("eve", second), -1);
  EXPECT_NE(first, second);
  User found;
  EXPECT_EQ(metadata_.FindSession(first, found), 1);
  EXPECT_EQ(found.uid, 7U);
  EXPECT_EQ(found.groups, (std::vector<std::uint32_t>{1, 3}));
  EXPECT_EQ(metadata_.FindSession(first.substr(1), found), 0);
  EXPECT_EQ(metadata_.FindSession("", found), 0);
  EXPECT_EQ(test::ReadFile(folder_ / "metadata.sqlite-wal").find(first), std::string::npos);
}

TEST_F(StoreTest, ManyThreadsShareCommitsAndGetNumbersOfTheirOwn) {
  constexpr int kThreads = 4, kEach = 20;
  std::atomic<int> done{0};
  std::vector<std::thread> threads;
  const Content content = Store("text");
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) {
        Put put;
        Node made;
        put.path = "/t" + std::to_string(t) + "/f" + std::to_string(i);
        put.content = content;
        if (metadata_.PutNode(view_.id, put, made) == Outcome::kDone) ++done;
        if (metadata_.PutNode(view_.id, put, made) == Outcome::kDone) ++done;
        put.base = 1;
        if (metadata_.PutNode(view_.id, put, made) == Outcome::kBaseChanged) ++done;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(done, 3 * kThreads * kEach);
  EXPECT_EQ(Find("/").max_id, 1U + kThreads * (kEach + 1));
  ExpectSound();
}

TEST_F(StoreTest, AContentIsThereWholeOrNotAtAll) {
  platform::FaultPlan plan;
  platform::ForwardingFiles files(platform::files(), plan.hook());
  const ustring file = folder_ / "incoming";
  for (unsigned nth = 1;; ++nth) {
    const std::string text = "content " + std::to_string(nth);
    test::WriteFile(file, text);
    plan.Clear();
    plan.FailNth(nth, platform::ErrorKind::kNoSpace);
    platform::SetFiles(&files);
    Content content;
    const int result = contents_.Add(file, "md4", content);
    platform::SetFiles(nullptr);
    SCOPED_TRACE(nth);
    if (result == 0) {
      EXPECT_EQ(contents_.Verify(content), 1);
    } else {
      EXPECT_TRUE(test::ReadFile(file) == text || contents_.Verify(content) == 1);
    }
    // A sum that the caller knows is not found out once more, and means the same.
    Content known;
    known.sha256 = content.sha256;
    test::WriteFile(file, text);
    if (result == 0) {
      EXPECT_EQ(contents_.Add(file, "md4", known), 0);
      EXPECT_EQ(known.size, content.size);
      EXPECT_EQ(contents_.Verify(known), 1);
    }
    if (plan.failures() == 0) break;
  }
  const Content twice = Store("twice");
  EXPECT_EQ(Store("twice").sha256, twice.sha256);
  EXPECT_FALSE(std::filesystem::exists(file.str()));
  test::WriteFile(contents_.PathOf(twice.sha256), "Twice");
  EXPECT_EQ(contents_.Verify(twice), 0);
}

TEST_F(StoreTest, SmallContentsComeWithTheirVersions) {
  SqliteMetadata metadata(1);  // keeps one older version
  View view;
  ASSERT_EQ(metadata.Open(folder_ / "small.sqlite"), 0);
  view.name = "v";
  ASSERT_EQ(metadata.AddView(view), 0);
  const std::string texts[] = {std::string("one\0and more", 12), "two", "three"};
  Node made;
  for (const std::string& text : texts) {
    Put put;
    put.path = "/f";
    put.base = made.sync_id;
    put.content = {0, text.size(), "md4 of " + text, HashOf(text)};
    put.bytes = &text;
    ASSERT_EQ(metadata.PutNode(view.id, put, made), Outcome::kDone);
    put.path = "/refused";
    put.base = 1;
    EXPECT_EQ(metadata.PutNode(view.id, put, made), Outcome::kNoBase);
    ASSERT_EQ(metadata.FindNode(view.id, "/f", made), 1);
  }
  std::string bytes;
  std::uint64_t unused = 0;
  EXPECT_EQ(metadata.FindBytes(HashOf(texts[0]), bytes), 1);
  EXPECT_EQ(bytes, texts[0]);
  for (const bool remove : {false, true}) {
    EXPECT_EQ(metadata.ListUnusedBytes(remove, unused), 0);
    EXPECT_EQ(unused, 1U);
  }
  EXPECT_EQ(metadata.FindBytes(HashOf(texts[0]), bytes), 0);
  EXPECT_EQ(metadata.FindBytes(HashOf(texts[2]), bytes), 1);
  EXPECT_EQ(bytes, texts[2]);
  EXPECT_EQ(metadata.ListUnusedBytes(false, unused), 0);
  EXPECT_EQ(unused, 0U);

  // Later they are contents like others; those that cannot be moved now stay where they are.
  SmallContentMover mover(metadata, contents_, ustring(folder_.path()));
  const std::string elsewhere = contents_.PathOf(HashOf(texts[2])).str();
  std::filesystem::create_directory(elsewhere);
  EXPECT_FALSE(mover.MoveSome());
  EXPECT_EQ(metadata.FindBytes(HashOf(texts[2]), bytes), 1);
  std::filesystem::remove(elsewhere);
  while (metadata.LastSmallContent() != 0) mover.MoveSome();
  EXPECT_EQ(test::ReadFile(elsewhere), texts[2]);
  EXPECT_EQ(metadata.FindBytes(HashOf(texts[2]), bytes), 0);
}

TEST(StoreKilled, LosesNoAcknowledgedChange) {
  const test::TempFolder folder;
  constexpr unsigned kRounds = 120;
  for (unsigned round = 0; round < kRounds; ++round) {
    const test::Outcome killed =
        test::RunProgram({STORE_WRITER, folder.path(), std::to_string(1 + round * 50),
                          std::to_string(1 + round * 37 % 811)});
    ASSERT_EQ(killed.status, 9) << round << ": " << killed.output;
    if (round % 6 != 5) continue;  // mostly, the next writer finds what the last one left
    SqliteMetadata metadata;
    FileContentStore contents(folder / "contents");
    ASSERT_EQ(metadata.Open(folder / "metadata.sqlite"), 0);
    std::vector<std::string> problems;
    ASSERT_EQ(metadata.Check(problems), 0);
    ASSERT_EQ(problems, std::vector<std::string>());
    View view;
    if (metadata.FindViewByName("v", view) != 1) continue;
    // What was answered last of each path; a killed upload may have come behind it.
    std::map<std::string, std::string> last;
    std::istringstream lines(test::ReadFile(folder / "acknowledged"));
    for (std::string line; std::getline(lines, line);) {
      const std::size_t tab = line.find('\t');
      last[line.substr(0, tab)] = line.substr(tab + 1);
    }
    for (const auto& [path, text] : last) {
      Node node;
      ASSERT_EQ(metadata.FindNode(view.id, path, node), 1) << path;
      if (node.is_dir || node.is_removed) continue;
      std::string stored;
      const bool is_small = metadata.FindBytes(node.content.sha256, stored) == 1;
      if (!is_small) stored = test::ReadFile(contents.PathOf(node.content.sha256));
      const auto number = [](const std::string& content) {
        return std::stoul("0" + content.substr(std::min<std::size_t>(8, content.size())));
      };
      EXPECT_GE(number(stored), number(text)) << path;
      EXPECT_EQ(
          is_small ? HashOf(stored) == node.content.sha256 : contents.Verify(node.content) == 1,
          true)
          << path;
    }
  }
}

}  // namespace
}  // namespace tolven::server
