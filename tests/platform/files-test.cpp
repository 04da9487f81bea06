// The file service on every system, and the wrapper that makes its calls fail.
#include "platform/files.h"

#include <gmock/gmock.h>

#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "support/temp-folder.h"

namespace tolven::platform {
namespace {

using test::ReadFile;
using test::WriteFile;

class CommonFilesTest : public ::testing::Test {
 protected:
  std::string At(const std::string& name) const { return (folder_ / name).str(); }

  void SetUp() override { WriteFile(At("file"), "content"); }

  test::TempFolder folder_;
};

TEST_F(CommonFilesTest, AppendsSmallAndLargeBlocksInOrder) {
  ScopedFile file;
  ASSERT_TRUE(files().Open(At("out"), OpenMode::kTruncate, *file.receive()).ok());
  auto writer = files().NewAppendWriter();
  std::size_t written = 1;
  EXPECT_EQ(writer->Wait(written).kind, ErrorKind::kInvalid);
  std::string expected;
  for (const std::size_t size : {3'000'000u, 10u, 0u, 700'000u, 20u}) {
    const std::string block(size, static_cast<char>('a' + expected.size() % 26));
    ASSERT_TRUE(writer->Begin(file.get(), block.data(), block.size()).ok());
    EXPECT_EQ(writer->Begin(file.get(), "x", 1).kind, ErrorKind::kInvalid);
    ASSERT_TRUE(writer->Wait(written).ok());
    EXPECT_EQ(written, size);
    expected += block;
  }
  // One that nobody waits for is written nevertheless.
  const std::string last(500'000, 'z');
  ASSERT_TRUE(writer->Begin(file.get(), last.data(), last.size()).ok());
  writer.reset();
  EXPECT_EQ(ReadFile(At("out")), expected + last);

  writer = files().NewAppendWriter();
  ASSERT_TRUE(files().Open(At("out"), OpenMode::kRead, *file.receive()).ok());
  for (const std::size_t size : {10u, 500'000u}) {
    ASSERT_TRUE(writer->Begin(file.get(), last.data(), size).ok());
    EXPECT_FALSE(writer->Wait(written).ok());
    EXPECT_EQ(written, 0u);
  }
}

// A small piece of work that uses several calls, as callers do.
Status Store(const std::string& path, const std::string& content) {
  ScopedFile file;
  std::size_t written = 0;
  Status status = files().Open(path + ".tmp", OpenMode::kTruncate, *file.receive());
  if (status.ok()) status = files().Write(file.get(), content.data(), content.size(), written);
  if (status.ok()) status = files().Sync(file.get());
  if (status.ok()) status = files().Close(file.Release());
  return status.ok() ? files().Rename(path + ".tmp", path) : status;
}

TEST_F(CommonFilesTest, EachCallOfAWrappedServiceCanBeMadeToFail) {
  FaultPlan plan;
  ForwardingFiles faulty(files(), plan.hook());
  Files* const before = SetFiles(&faulty);
  unsigned failed = 0;
  for (unsigned nth = 1;; ++nth) {
    plan.Clear();
    plan.FailNth(nth, ErrorKind::kNoSpace);
    const Status status = Store(At("file"), "new");
    if (plan.failures() == 0) break;
    ++failed;
    EXPECT_EQ(status.kind, ErrorKind::kNoSpace);
    EXPECT_EQ(ReadFile(At("file")), "content");
  }
  EXPECT_EQ(failed, 5u);
  EXPECT_EQ(ReadFile(At("file")), "new");

  plan.Clear();
  plan.FailNth("Next", 3, ErrorKind::kBusy, FaultPlan::Lasting::kFromThenOn);
  std::unique_ptr<DirReader> reader;
  ASSERT_TRUE(files().OpenDirectory(folder_.path(), false, reader).ok());
  DirItem item;
  bool done = false;
  for (const bool ok : {true, true, false, false}) EXPECT_EQ(reader->Next(item, done).ok(), ok);
  EXPECT_EQ(plan.calls("Next"), 4u);
  EXPECT_EQ(plan.calls(), 5u);
  plan.Clear();
  EXPECT_TRUE(reader->Next(item, done).ok());
  reader.reset();
  EXPECT_EQ(SetFiles(nullptr), &faulty);
  EXPECT_EQ(&files(), before);
}

}  // namespace
}  // namespace tolven::platform
