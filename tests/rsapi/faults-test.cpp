// Bad signatures and deltas, full disks, failing calls and aborts.

#include <gtest/gtest.h>

#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "workbench.h"

namespace tolven::test {
namespace {

using namespace std::string_literals;
using platform::ErrorKind;

class RsapiFaultTest : public ::testing::Test, protected Workbench {
 protected:
  RsapiFaultTest() { before_ = platform::SetFiles(&faulty_); }
  ~RsapiFaultTest() override {
    platform::SetFiles(before_);
    EXPECT_LE(plan_.calls("Open"), plan_.calls("Close") + plan_.failures()) << "left open";
  }

  platform::FaultPlan plan_;
  platform::ForwardingFiles faulty_{platform::files(), plan_.hook()};
  platform::Files* before_ = nullptr;
};

TEST_F(RsapiFaultTest, RefusesMalformedSignatures) {
  const std::string good = Signature(std::string(5000, 'a'), 2048, 8);
  for (std::size_t size = 0; size < 12; ++size) {
    Delta(good.substr(0, size), "new");
    EXPECT_EQ(result, FileReader::ERROR_HANDLER_CALL) << size;
  }
  for (const auto& [at, byte] : {std::pair{3, '\x37'}, {6, '\0'}, {11, '\0'}, {11, '\x11'}}) {
    std::string bad = good;
    bad[static_cast<std::size_t>(at)] = byte;
    Delta(bad, "new");
    EXPECT_EQ(result, FileReader::ERROR_HANDLER_CALL) << at;
  }
  // One that ends within an entry serves with what it has.
  Delta(good.substr(0, good.size() - 1), std::string(2048, 'a'));
  EXPECT_EQ(result, 0);
  for (const auto& [block, hash] : {std::pair{0u, 8u}, {2048u, 0u}, {2048u, 17u}}) {
    Signature("text", block, hash);
    EXPECT_EQ(result, FileReader::ERROR_HANDLER_CALL);
  }
}

TEST_F(RsapiFaultTest, RefusesMalformedDeltas) {
  const std::string basis = "0123456789";
  const std::string good = "rs\x02\x36\x45\x02\x03\x02xy\x41\x01z\x4E\0\0\0\0\0\x04\0"s;
  EXPECT_EQ(Patch(basis, good, 10), "234xyz0123");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Patch("234xyz0123", ReadFile(folder / "reverse")), basis);
  for (std::size_t size = 0; size < good.size(); ++size) {
    Patch(basis, good.substr(0, size));
    EXPECT_EQ(result, FileReader::ERROR_FILE_FORMAT) << size;
  }
  const struct {
    const char* what;
    std::string commands;
    int code;
  } kBad[] = {
      {"reserved", "\x55\0"s, FileReader::ERROR_FILE_FORMAT},
      {"reserved", "\xFF\0"s, FileReader::ERROR_FILE_FORMAT},
      {"long literal", "\x44\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFFx"s, FileReader::ERROR_FILE_FORMAT},
      {"copy from behind", "\x45\x0B\x01\0"s, FileReader::ERROR_SYSTEM_CALL},
      {"copy too long", "\x45\x09\x02\0"s, FileReader::ERROR_SYSTEM_CALL},
      {"copy around", "\x54\0\0\0\0\0\0\0\x02\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\0"s,
       FileReader::ERROR_SYSTEM_CALL},
  };
  for (const auto& [what, commands, code] : kBad) {
    Patch(basis, "rs\x02\x36" + commands);
    EXPECT_EQ(result, code) << what;
  }
  Patch(basis, "rs\x02\x37\0"s);
  EXPECT_EQ(result, FileReader::ERROR_FILE_FORMAT);
}

TEST_F(RsapiFaultTest, APatchStopsAboveTheAnnouncedSize) {
  const std::string basis(500'000, 'b');
  std::string bomb = "rs\x02\x36";
  for (int i = 0; i < 1000; ++i) bomb += "\x47\0\0\x07\xA1\x20"s;
  bomb += '\0';
  for (const std::uint64_t announced : {std::uint64_t{0}, std::uint64_t{3'250'000}}) {
    const std::string made = Patch(basis, bomb, announced);
    EXPECT_EQ(result, FileReader::ERROR_FILE_FORMAT);
    EXPECT_LE(made.size(), announced);
  }
}

TEST_F(RsapiFaultTest, EveryFailingCallIsToldAndLeavesNothingOpen) {
  Random random(4);
  const std::string basis = RandomText(random, 1'500'000);
  const std::string content = RandomText(random, 1'400'000) + basis.substr(700'000);
  const std::string delta = Delta(Signature(basis, 2048, 8), content);
  const ustring new_file = Put("new", content), basis_file = Put("basis", basis);
  const ustring signature = folder / "signature", delta_file = Put("delta", delta);
  ustring hash;
  const auto read = [&] {
    SimpleFileReader reader;
    reader.setFile(new_file);
    reader.setCopyFile(folder / "copy");
    reader.setHashString(hash);
    reader.setSignature(folder / "made", 2048, 8);
    reader.setDelta(folder / "made-delta", signature);
    return reader.readFile();
  };
  const auto patch = [&] {
    DeltaFileReader reader;
    reader.setFile(basis_file, delta_file);
    reader.setNewFile(folder / "copy");
    reader.setReverseDeltaFile(folder / "reverse");
    reader.setHashString(hash);
    return reader.readFile();
  };
  for (const std::function<int()>& work : {std::function<int()>(read), {patch}}) {
    for (unsigned nth = 1;; ++nth) {
      plan_.Clear();
      plan_.FailNth(nth, ErrorKind::kNoSpace);
      const int code = work();
      EXPECT_LE(plan_.calls("Open"), plan_.calls("Close") + plan_.failures()) << nth;
      if (plan_.failures() == 0) {
        EXPECT_EQ(code, 0);
        EXPECT_EQ(ReadFile(folder / "copy"), content);
        EXPECT_GT(nth, 20u);
        break;
      }
      // A source that was only read may fail to close.
      if (code == 0) {
        EXPECT_EQ(ReadFile(folder / "copy"), content) << nth;
      }
      EXPECT_TRUE(code <= 0 && code >= FileReader::ERROR_FILE_FORMAT) << nth;
    }
  }
  // A disk that stays full.
  plan_.Clear();
  plan_.FailNth("Wait", 2, ErrorKind::kNoSpace, platform::FaultPlan::Lasting::kFromThenOn);
  EXPECT_EQ(read(), FileReader::ERROR_HANDLER_CALL);
  EXPECT_EQ(patch(), FileReader::ERROR_HANDLER_CALL);
}

// Raises the flag at the second read of a pass.
class AbortingFiles : public platform::ForwardingFiles {
 public:
  AbortingFiles(platform::Files& base, std::atomic<int>& flag)
      : ForwardingFiles(base), flag_(flag) {}
  platform::Status Read(platform::NativeFile file, void* data, std::size_t size,
                        std::size_t& got) override {
    if (++reads_ == 2) flag_ = 1;
    return ForwardingFiles::Read(file, data, size, got);
  }

 private:
  std::atomic<int>& flag_;
  int reads_ = 0;
};

TEST_F(RsapiFaultTest, AnAbortEndsThePassAndStillEndsTheHandlers) {
  const std::string content(5'000'000, 'c');
  std::atomic<int> flag{1};
  ustring hash;
  SimpleFileReader reader;
  reader.setAbortFlag(&flag);
  reader.setFile(Put("new", content));
  reader.setHashString(hash);
  EXPECT_EQ(reader.readFile(), FileReader::ERROR_ABORT);
  EXPECT_EQ(hash, "31d6cfe0d16ae931b73c59d7e0c089c0") << "of no bytes";

  flag = 0;
  AbortingFiles aborting(platform::files(), flag);
  platform::SetFiles(&aborting);
  EXPECT_EQ(reader.readFile(), FileReader::ERROR_ABORT);
  EXPECT_EQ(reader.getProcessedSize(), 2 * FileReader::kPieceSize);

  DeltaFileReader patch;
  patch.setAbortFlag(&flag);
  patch.setFile(folder / "new", Put("delta", "rs\x02\x36\0"s));
  EXPECT_EQ(patch.readFile(), FileReader::ERROR_ABORT);
  platform::SetFiles(&faulty_);
}

}  // namespace
}  // namespace tolven::test
