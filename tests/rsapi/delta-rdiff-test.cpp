// Signatures, deltas and patches beside those of rdiff, a program of this system.

#include <gtest/gtest.h>

#include "workbench.h"

namespace tolven::test {
namespace {

constexpr const char* kRdiffSignature = "-b 2048 -S 8 -H md4 -R rollsum signature basis theirs";

class RdiffTest : public ::testing::Test, protected Workbench {
 protected:
  // Whether rdiff accepts its arguments, which name files of the folder.
  bool Rdiff(const std::string& arguments) {
    return std::system(("cd " + folder.path() + " && rdiff -f " + arguments).c_str()) == 0;
  }
  // Ours and rdiff's ways lead from `basis` to `content` and back.
  void ExpectRoundTrip(const std::string& basis, const std::string& content) {
    const std::string signature = Signature(basis, 2048, 8);
    ASSERT_TRUE(Rdiff(kRdiffSignature));
    ASSERT_EQ(signature, ReadFile(folder / "theirs"));
    const std::string delta = Delta(signature, content);
    ASSERT_EQ(result, 0);
    ASSERT_TRUE(Rdiff("patch basis delta patched"));
    ASSERT_EQ(ReadFile(folder / "patched"), content);
    ASSERT_TRUE(Rdiff("delta signature new theirs"));
    for (const std::string& patch : {delta, ReadFile(folder / "theirs")}) {
      ASSERT_EQ(Patch(basis, patch, content.size()), content);
      ASSERT_EQ(result, 0);
      const std::string reverse = ReadFile(folder / "reverse");
      ASSERT_EQ(Patch(content, reverse, basis.size()), basis);
      ASSERT_EQ(result, 0);
      ASSERT_LE(reverse.size(), basis.size() + 1000) << "nothing was shared";
    }
  }
};

TEST_F(RdiffTest, AgreesAroundEveryBoundary) {
  Random random(2);
  for (const std::size_t near : {0u, 64u, 256u, 2048u, 4096u, 32768u, 65536u, 0x100000u}) {
    for (const int beside : {-1, 0, 1}) {
      const std::size_t size = near + static_cast<std::size_t>(std::max(beside, -int(near)));
      const std::string basis = RandomText(random, size);
      ASSERT_NO_FATAL_FAILURE(ExpectRoundTrip(basis, basis));
      ASSERT_NO_FATAL_FAILURE(ExpectRoundTrip(basis, RandomText(random, 100) + basis));
      ASSERT_NO_FATAL_FAILURE(ExpectRoundTrip(basis, Edited(random, basis)));
      ASSERT_NO_FATAL_FAILURE(ExpectRoundTrip(std::string(size, '\0'), basis));
    }
  }
  // Enough equal blocks for a long list, and a new file that has them at odd places.
  const std::string zeros(300 * 2048, '\0');
  ASSERT_NO_FATAL_FAILURE(ExpectRoundTrip(zeros + "x" + zeros, "y" + zeros + "z" + zeros));
}

}  // namespace
}  // namespace tolven::test
