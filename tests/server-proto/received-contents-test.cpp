// The sums that are made of contents on their way.
#include "server/protocol/received-contents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "rsapi-cpp/simple-file-reader.h"
#include "server/protocol/sha256-handler.h"
#include "server/store/metadata.h"
#include "support/temp-folder.h"

namespace tolven::server {
namespace {

std::string RandomBytes(std::size_t size) {
  std::mt19937 random(static_cast<unsigned>(size));
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// One after the other, without threads.
ReceivedContents::Sums SumsOf(const ustring& path, const std::string& bytes) {
  ReceivedContents::Sums sums{path, {}, {}, {}};
  Sha256 sha256;
  sha256.Update(bytes.data(), bytes.size());
  sums.sha256 = sha256.Finish();
  SimpleFileReader reader;
  reader.setFile(path);
  reader.setHashString(sums.md4);
  EXPECT_EQ(reader.readFile(), 0);
  return sums;
}

constexpr std::size_t kSizes[] = {0, 1, 4096, 9'000'000};

TEST(ReceivedContents, AreSummedUpWhileTheyArrive) {
  constexpr std::size_t kPiece = 81'920;
  const test::TempFolder folder;
  ReceivedContents contents;
  for (const std::size_t size : kSizes) {
    const std::string bytes = RandomBytes(size);
    const ustring path = folder / std::to_string(size);
    test::WriteFile(path, bytes);
    platform::ScopedFile file;
    ASSERT_TRUE(platform::files().Open(path, platform::OpenMode::kModify, *file.receive()).ok());
    const auto receive = [&](std::size_t upto) {
      contents.Begin(path, size);
      for (std::size_t at = 0; at < upto; at += kPiece) {
        contents.Stored(file.get(), bytes.data() + at, std::min(kPiece, upto - at));
      }
    };
    receive(size / 2);
    EXPECT_EQ(contents.Find(path), nullptr) << "it broke off";
    receive(size);
    contents.End();
    const ReceivedContents::Sums* const sums = contents.Find(path);
    ASSERT_NE(sums, nullptr);
    const ReceivedContents::Sums wanted = SumsOf(path, bytes);
    EXPECT_EQ(sums->md4, wanted.md4);
    EXPECT_EQ(sums->sha256, wanted.sha256);
    EXPECT_EQ(contents.Find(folder / "other"), nullptr);
  }
  contents.Clear();
  EXPECT_EQ(contents.Find(folder / "1"), nullptr);
}

TEST(ReceivedContents, KeepTheFirstSmallOneWhenToldTo) {
  const test::TempFolder folder;
  ReceivedContents contents;
  EXPECT_FALSE(contents.Keeps(1));
  contents.Clear(true);
  EXPECT_FALSE(contents.Keeps(kLargestSmallContent + 1));
  EXPECT_TRUE(contents.Keeps(kLargestSmallContent));
  EXPECT_FALSE(contents.Keeps(1));
  const std::string bytes = RandomBytes(kLargestSmallContent);
  contents.Begin({}, bytes.size());
  contents.Stored(platform::kInvalidFile, bytes.data(), 1);
  EXPECT_EQ(contents.Find({}), nullptr) << "it is not complete";
  contents.Stored(platform::kInvalidFile, bytes.data() + 1, bytes.size() - 1);
  contents.End();
  const ReceivedContents::Sums* const kept = contents.Find({});
  ASSERT_NE(kept, nullptr);
  test::WriteFile(folder / "same", bytes);
  EXPECT_EQ(kept->bytes, bytes);
  EXPECT_EQ(kept->sha256, SumsOf(folder / "same", bytes).sha256);
  EXPECT_EQ(kept->md4, SumsOf(folder / "same", bytes).md4);
}

TEST(Sha256Handler, SumsUpWhatAPassWrites) {
  const test::TempFolder folder;
  for (const std::size_t size : kSizes) {
    const std::string bytes = RandomBytes(size);
    test::WriteFile(folder / "from", bytes);
    std::string sha256;
    SimpleFileReader reader;
    reader.setFile(folder / "from");
    reader.setCopyFile(folder / "to");
    reader.setFurtherHandler(std::make_unique<Sha256Handler>(folder / "to", size, sha256));
    ASSERT_EQ(reader.readFile(), 0);
    EXPECT_EQ(sha256, SumsOf(folder / "from", bytes).sha256);
    EXPECT_EQ(test::ReadFile(folder / "to"), bytes);
  }
}

}  // namespace
}  // namespace tolven::server
