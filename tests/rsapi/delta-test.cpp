// Signatures, deltas and patches: their bytes, and beside a plain second version.

#include <gtest/gtest.h>

#include <ctime>

#include "naive-delta.h"
#include "workbench.h"

namespace tolven::test {
namespace {

using namespace std::string_literals;

class DeltaTest : public ::testing::Test, protected Workbench {};

TEST_F(DeltaTest, CommandsAreTheNarrowestThereAre) {
  Random random(1);
  const std::string basis = RandomText(random, 6144);
  const std::string empty = Signature("", 2048, 8), signature = Signature(basis, 2048, 8);
  EXPECT_EQ(empty, "rs\x01\x36\0\0\x08\0\0\0\0\x08"s);
  const auto literal = [&](std::size_t size, const std::string& command) {
    const std::string data = RandomText(random, size);
    EXPECT_EQ(Delta(signature, data), "rs\x02\x36" + command + data + '\0');
  };
  EXPECT_EQ(Delta(empty, ""), "rs\x02\x36\0"s);
  literal(64, "\x40");
  literal(65, "\x41\x41");
  literal(256, "\x42\x01\0"s);
  literal(2047, "\x42\x07\xFF");
  EXPECT_EQ(Delta(signature, basis), "rs\x02\x36\x46\0\x18\0\0"s);
  EXPECT_EQ(Delta(signature, basis.substr(0, 2048)), "rs\x02\x36\x46\0\x08\0\0"s);
  EXPECT_EQ(Delta(signature, basis.substr(4096) + "tail"), "rs\x02\x36\x4A\x10\0\x08\0\x04tail\0"s);
  // The short last block of a basis is never found.
  EXPECT_EQ(Delta(Signature("short", 2048, 8), "short"), "rs\x02\x36\x05short\0"s);
  // A copy and a literal end with the piece that was read.
  const std::string large = RandomText(random, 0x100000 + 2048);
  EXPECT_EQ(Delta(Signature(large, 2048, 8), large),
            "rs\x02\x36\x47\0\0\x10\0\0\x4E\0\x10\0\0\x08\0\0"s);
  const std::string other = Delta(signature, large);
  EXPECT_EQ(other.substr(4, 5), "\x43\0\x0F\xF8\x01"s);
  EXPECT_EQ(other.size(), large.size() + 4 + 5 + 3 + 3 + 1);
}

// Its weak sum is that of every window, its strong sum that of none: 200 GB to hash, if believed.
TEST_F(DeltaTest, ASignatureThatDeceivesAtEveryByteCostsLittle) {
  constexpr std::uint32_t kBlock = 65536;
  const std::string content(3 << 20, 'x');
  std::string signature = Signature(content.substr(0, kBlock), kBlock, 8);
  signature.back() = static_cast<char>(signature.back() ^ 1);
  const std::clock_t start = std::clock();
  const std::string delta = Delta(signature, content);
  const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  EXPECT_LT(seconds, 20);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Patch(content.substr(0, kBlock), delta), content);
}

TEST_F(DeltaTest, IsWhatThePlainVersionWrites) {
  for (unsigned seed = 0; seed < 150; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    // Few letters and short sums: equal blocks, equal weak sums and sums that deceive.
    const int letters = 1 + static_cast<int>(random() % 4);
    const std::size_t block = 1 + random() % 70, hash = 1 + random() % 16;
    const std::string basis = RandomText(random, random() % 9000, letters);
    const std::string content = Edited(random, basis, letters);
    const std::string signature =
        Signature(basis, static_cast<std::uint32_t>(block), static_cast<std::uint32_t>(hash));
    EXPECT_EQ(signature.size(), 12 + (basis.size() + block - 1) / block * (hash + 4));
    ASSERT_EQ(Delta(signature, content), NaiveDelta(basis, content, block, hash));
  }
}

TEST_F(DeltaTest, OnePassFeedsEveryHandler) {
  Random random(3);
  const std::string basis = RandomText(random, 3'000'000);
  const std::string content = Edited(random, basis) + "end";
  const std::string old_signature = Signature(basis, 2048, 8);
  const std::string signature = Signature(content, 2048, 8);
  const std::string delta = Delta(old_signature, content);
  ustring hash, empty_hash, patched_hash;
  SimpleFileReader all;
  all.setFile(Put("new", content));
  all.setCopyFile(folder / "copy");
  all.setHashString(hash);
  all.setSignature(folder / "made", 2048, 8);
  all.setDelta(folder / "delta", Put("signature", old_signature));
  ASSERT_EQ(all.readFile(), 0);
  EXPECT_EQ(all.getProcessedSize(), content.size());
  EXPECT_EQ(ReadFile(folder / "copy"), content);
  EXPECT_EQ(ReadFile(folder / "made"), signature);
  EXPECT_EQ(ReadFile(folder / "delta"), delta);

  DeltaFileReader patch;
  patch.setFile(Put("basis", basis), folder / "delta");
  patch.setHashString(patched_hash);
  patch.setSignature(folder / "made", 2048, 8);
  ASSERT_EQ(patch.readFile(), 0);
  EXPECT_EQ(patched_hash, hash);
  EXPECT_EQ(ReadFile(folder / "made"), signature);

  SimpleFileReader empty;
  EXPECT_EQ(empty.readFile(), FileReader::ERROR_ARGUMENT);
  empty.setFile(Put("empty", ""));
  empty.setHashString(empty_hash);
  ASSERT_EQ(empty.readFile(), 0);
  EXPECT_EQ(empty_hash, "31d6cfe0d16ae931b73c59d7e0c089c0");
}

// A block that would not fit into memory: all literal, and right nevertheless.
TEST_F(DeltaTest, BlocksBeyondAnyBufferAreSentWhole) {
  const std::string signature = "rs\x01\x36\xFF\xFF\xFF\xFF\0\0\0\x08"s + std::string(24, 'x');
  const std::string content(0x100000 + 7, 'c');
  EXPECT_EQ(Patch("basis", Delta(signature, content)), content);
}

}  // namespace
}  // namespace tolven::test
