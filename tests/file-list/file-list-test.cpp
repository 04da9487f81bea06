#include "client/file-list.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace tolven {
namespace {

std::vector<std::string> Walk(const FileList& list) {
  std::vector<std::string> shown;
  for (auto it = list.rbegin(); it != list.rend(); ++it) {
    shown.push_back((it->is_dir() ? "d" : "f") + it->path.str());
  }
  return shown;
}

using Shown = std::vector<std::string>;

TEST(FileList, ShowsContentBeforeItsDirectoryAndEndsAtTheRoot) {
  StringBuffer buffer;
  FileList list(buffer);
  auto it = list.rbegin();
  EXPECT_TRUE(it == list.rend());
  EXPECT_EQ((++it)->path, "");

  EXPECT_EQ(list.AddDirectory("/a", 7, "x"), 1);
  EXPECT_EQ(list.AddFile("/a/b", 8, 9, "y"), 0);
  EXPECT_EQ(list.AddFile("/c", {}), 0);
  EXPECT_EQ(Walk(list), (Shown{"f/c", "f/a/b", "d/a"}));
  it = ++list.rbegin();
  EXPECT_TRUE(it->attr == (FileList::Attribute{8, 9, "y"})) << it->attr.toString();
  EXPECT_TRUE((++it)->attr == (FileList::Attribute{7, 0, "x"})) << it->attr.toString();
  EXPECT_EQ((++it)->path, "");
  EXPECT_TRUE(it == list.rend());
}

TEST(FileList, TheFirstAddStands) {
  StringBuffer buffer(512);
  FileList list(buffer);
  EXPECT_EQ(list.AddFile("/gap/deep/file", 1, 2, ""), 0);
  EXPECT_EQ(list.AddDirectory("/gap", 5, "late"), -1);
  EXPECT_EQ(list.AddFile("/gap/deep/file", 3, 4, ""), -1);
  EXPECT_EQ(list.AddDirectory("/gap/deep/file", {}), -1);
  EXPECT_EQ(list.AddFile("/gap/deep/file/below", {}), -1);
  EXPECT_EQ(list.AddFile("/x/", {}), -1);
  EXPECT_EQ(list.AddFile("/", {}), -1);
  EXPECT_EQ(list.AddDirectory("", {}), -1);
  EXPECT_EQ(list.AddFile(3, "name", {}), -1);
  EXPECT_EQ(list.AddFile(-1, "name", {}), -1);
  // A file may take a directory's name; the directory is met first.
  EXPECT_EQ(list.AddFile(0, "gap", {}), 0);
  const int inner = list.AddDirectory(2, "inner", {});
  EXPECT_EQ(list.AddFile(inner, "~", 0, 0, ""), 0);
  EXPECT_EQ(Walk(list), (Shown{"f/gap/deep/inner/~", "d/gap/deep/inner", "f/gap/deep/file",
                               "d/gap/deep", "d/gap", "f/gap"}));
  EXPECT_FALSE(list.incomplete());
  for (auto it = list.rbegin(); it != list.rend(); ++it) {
    EXPECT_EQ(it->attr.mtime, it->path == "/gap/deep/file" ? 1U : 0U);
  }
}

// Random trees with few names, adds and walks in turn, against a map of what was added.
TEST(FileList, WalksAnyTreeInDescendingOrder) {
  std::mt19937 random(20261121);
  for (int round = 0; round < 30; ++round) {
    StringBuffer buffer;
    FileList list(buffer);
    std::map<std::string, char> known;  // "/" in paths as 1, which sorts as levels do
    for (int i = 0; i < 400; ++i) {
      std::string path, key;
      bool through_file = false;
      for (auto depth = 1 + random() % 3; depth > 0; --depth) {
        const std::string name = std::to_string(random() % 40) + (random() % 2 ? "" : "-\xC3\xA4");
        path += "/" + name;
        key += "\x01" + name;
        if (depth == 1) break;
        if (known.emplace(key, 'd').first->second == 'f') {
          through_file = true;
          break;
        }
      }
      const bool dir = random() % 4 == 0;
      if (through_file) {
        EXPECT_EQ(list.AddFile(path + "/below", {}), -1);
        continue;
      }
      const bool is_new = !known.contains(key);
      if (!is_new && !dir && known[key] == 'd') continue;  // one name twice: see above
      EXPECT_EQ(dir ? list.AddDirectory(path, {}) > 0 : list.AddFile(path, {}) == 0, is_new);
      known.emplace(key, dir ? 'd' : 'f');
      if (i % 100 != 99) continue;
      Shown expected;
      for (auto it = known.begin(); it != known.end(); ++it) {
        std::string shown = it->second + it->first;
        std::replace(shown.begin(), shown.end(), '\x01', '/');
        expected.insert(expected.begin(), shown);
      }
      // The map has a directory before its content, the walk the other way round.
      EXPECT_EQ(Walk(list), expected);
    }
  }
}

TEST(StringBuffer, KeepsEveryTextInPlaceOnce) {
  StringBuffer buffer;
  std::vector<StringBuffer::String> kept;
  for (int i = 0; i < 5000; ++i) {
    kept.emplace_back();
    ASSERT_EQ(buffer.insert(std::to_string(i * 7919), kept.back()), 0);
  }
  const std::string long_text(100000, 'x');
  StringBuffer::String out;
  ASSERT_EQ(buffer.insert(long_text, out), 0);
  EXPECT_EQ(out.ptr, long_text);
  for (int i = 0; i < 5000; ++i) {
    const std::string text = std::to_string(i * 7919);
    EXPECT_EQ(kept[static_cast<std::size_t>(i)].ptr, text);
    ASSERT_EQ(buffer.insert(text, out), 0);
    EXPECT_EQ(out.ptr, kept[static_cast<std::size_t>(i)].ptr);  // the pointer itself
  }
  EXPECT_EQ(buffer.size(), 5001U);
}

}  // namespace
}  // namespace tolven
