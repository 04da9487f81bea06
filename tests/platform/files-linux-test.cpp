// The file service of Linux.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>

#include "platform/files.h"
#include "platform/rename-linux.h"
#include "support/temp-folder.h"

namespace tolven::platform {
namespace {

namespace fs = std::filesystem;
using test::ReadFile;
using test::WriteFile;

class FilesTest : public ::testing::Test {
 protected:
  std::string At(const std::string& name) const { return (folder_ / name).str(); }

  void SetUp() override {
    WriteFile(At("file"), "content");
    fs::create_directories(At("full/sub"));
    fs::create_directory(At("empty"));
    fs::create_symlink("full", At("to-folder"));
    fs::create_symlink("file", At("to-file"));
    fs::create_symlink("nowhere", At("dangling"));
    ASSERT_EQ(::mkfifo(At("fifo").c_str(), 0600), 0);
  }

  ErrorKind KindOf(const std::string& name, NodeKind& kind) const {
    NodeInfo info;
    const Status status = files().Stat(At(name), info);
    kind = info.kind;
    return status.kind;
  }
  bool Exists(const std::string& name) const { return fs::exists(fs::symlink_status(At(name))); }

  test::TempFolder folder_;
  const std::string long_name_ = std::string(300, 'n');
};

TEST_F(FilesTest, OpensByModeAndNeverWaits) {
  struct {
    const char* name;
    OpenMode mode;
    ErrorKind kind;
    const char* after;  // the content after "X" was written; null when nothing can be
  } const cases[] = {
      {"file", OpenMode::kRead, ErrorKind::kNone, nullptr},
      {"none", OpenMode::kRead, ErrorKind::kNotFound, nullptr},
      {"full", OpenMode::kRead, ErrorKind::kIsDirectory, nullptr},
      {"file/below", OpenMode::kRead, ErrorKind::kNotDirectory, nullptr},
      {"fifo", OpenMode::kRead, ErrorKind::kInvalid, nullptr},
      {"fifo", OpenMode::kModify, ErrorKind::kInvalid, nullptr},
      {"none", OpenMode::kModify, ErrorKind::kNotFound, nullptr},
      {"file", OpenMode::kModify, ErrorKind::kNone, "Xontent"},
      {"file", OpenMode::kAppend, ErrorKind::kNone, "XontentX"},
      {"file", OpenMode::kTruncate, ErrorKind::kNone, "X"},
      {"file", OpenMode::kCreateExclusive, ErrorKind::kExists, nullptr},
      {"dangling", OpenMode::kCreateExclusive, ErrorKind::kExists, nullptr},
      {"new", OpenMode::kCreateExclusive, ErrorKind::kNone, "X"},
      {"new2", OpenMode::kAppend, ErrorKind::kNone, "X"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ScopedFile file;
    EXPECT_EQ(files().Open(At(c.name), c.mode, *file.receive()).kind, c.kind);
    EXPECT_EQ(file.valid(), c.kind == ErrorKind::kNone);
    if (!file.valid()) continue;
    EXPECT_TRUE(::fcntl(static_cast<int>(file.get()), F_GETFD) & FD_CLOEXEC);
    std::size_t written = 0;
    EXPECT_EQ(files().Write(file.get(), "X", 1, written).ok(), c.after != nullptr);
    if (c.after != nullptr) {
      EXPECT_EQ(ReadFile(At(c.name)), c.after);
    }
  }
  NodeInfo info;
  ASSERT_TRUE(files().Stat(At("new"), info).ok());
  EXPECT_EQ(info.mode, 0600u);
}

TEST_F(FilesTest, ReadsSeeksAndTellsAFullDisk) {
  ScopedFile file;
  ASSERT_TRUE(files().Open(At("file"), OpenMode::kModify, *file.receive()).ok());
  char buffer[16];
  std::size_t got = 1;
  ASSERT_TRUE(files().Seek(file.get(), 5).ok());
  ASSERT_TRUE(files().Read(file.get(), buffer, sizeof buffer, got).ok());
  EXPECT_EQ(std::string(buffer, got), "nt");
  ASSERT_TRUE(files().Read(file.get(), buffer, sizeof buffer, got).ok());
  EXPECT_EQ(got, 0u);
  ASSERT_TRUE(files().Truncate(file.get(), 5ULL << 32).ok());
  ASSERT_TRUE(files().Sync(file.get()).ok());
  NodeInfo info;
  ASSERT_TRUE(files().StatFile(file.get(), info).ok());
  EXPECT_EQ(info.size, 5ULL << 32);
  EXPECT_EQ(files().Seek(file.get(), ~0ULL).kind, ErrorKind::kInvalid);
  ASSERT_TRUE(files().Open("/dev/full", OpenMode::kModify, *file.receive()).ok());
  EXPECT_EQ(files().Write(file.get(), "x", 1, got).kind, ErrorKind::kNoSpace);
  EXPECT_EQ(got, 0u);
}

TEST_F(FilesTest, LooksAtNamesAndNotThroughLinks) {
  struct {
    std::string name;
    ErrorKind error;
    NodeKind kind;
  } const cases[] = {
      {"file", ErrorKind::kNone, NodeKind::kFile},
      {"full", ErrorKind::kNone, NodeKind::kDirectory},
      {"full///", ErrorKind::kNone, NodeKind::kDirectory},
      {"to-folder", ErrorKind::kNone, NodeKind::kLink},
      {"to-folder/", ErrorKind::kNone, NodeKind::kLink},
      {"dangling", ErrorKind::kNone, NodeKind::kLink},
      {"fifo", ErrorKind::kNone, NodeKind::kFifo},
      {"none", ErrorKind::kNotFound, NodeKind::kFile},
      {"none/below", ErrorKind::kNotFound, NodeKind::kFile},
      {"file/below", ErrorKind::kNotFound, NodeKind::kFile},
      {long_name_, ErrorKind::kNameTooLong, NodeKind::kFile},
  };
  for (const auto& c : cases) {
    NodeKind kind{};
    EXPECT_EQ(KindOf(c.name, kind), c.error) << c.name;
    EXPECT_EQ(kind, c.kind) << c.name;
  }
  NodeInfo file, again, fifo;
  ASSERT_TRUE(files().Stat(At("file"), file).ok());
  fs::rename(At("file"), At("moved"));
  ASSERT_TRUE(files().Stat(At("moved"), again).ok());
  ASSERT_TRUE(files().Stat(At("fifo"), fifo).ok());
  EXPECT_EQ(file.file_id, again.file_id);
  EXPECT_EQ(file.volume_id, again.volume_id);
  EXPECT_NE(file.file_id, fifo.file_id);
  EXPECT_EQ(file.size, 7u);
  EXPECT_TRUE(fifo.system);
  EXPECT_FALSE(file.system);
  ustring text;
  EXPECT_TRUE(files().NameOnDisk(At("full/sub/"), text).ok());
  EXPECT_EQ(text, "sub");
  EXPECT_EQ(files().RealPath(At("none"), text).kind, ErrorKind::kNotFound);
}

TEST_F(FilesTest, SetsTimesAndModesOfTheObjectItself) {
  NodeInfo info;
  for (const std::int64_t time :
       {std::int64_t{1'500'000'000'123'456'789}, std::int64_t{-1'500'000'000}}) {
    ASSERT_TRUE(files().SetModifiedTime(At("file"), time).ok());
    ASSERT_TRUE(files().Stat(At("file"), info).ok());
    EXPECT_EQ(info.mtime_ns, time);
  }
  EXPECT_TRUE(files().SetModifiedTime(At("dangling"), 1'000'000'000).ok());
  EXPECT_EQ(files().SetMode(At("to-file"), 0644).kind, ErrorKind::kNotSupported);
  ASSERT_TRUE(files().SetMode(At("file"), 0640).ok());
  ASSERT_TRUE(files().SetReadOnly(At("file"), true).ok());
  ASSERT_TRUE(files().Stat(At("file"), info).ok());
  EXPECT_EQ(info.mode, 0440u);
  ASSERT_TRUE(files().SetReadOnly(At("file"), false).ok());
  const mode_t mask = ::umask(077);
  ASSERT_TRUE(files().MakeDirectoryMode(At("made"), 0755).ok());
  ::umask(mask);
  ASSERT_TRUE(files().Stat(At("made"), info).ok());
  EXPECT_EQ(info.mode, 0755u);
  EXPECT_EQ(files().MakeDirectory(At("made")).kind, ErrorKind::kExists);
}

TEST_F(FilesTest, RemovesLinksAndNeverWhatTheyPointTo) {
  EXPECT_EQ(files().RemoveDirectory(At("full")).kind, ErrorKind::kNotEmpty);
  EXPECT_EQ(files().RemoveFile(At("full")).kind, ErrorKind::kIsDirectory);
  EXPECT_EQ(files().RemoveDirectory(At("file")).kind, ErrorKind::kNotDirectory);
  EXPECT_EQ(files().RemoveDirectory(At("to-file")).kind, ErrorKind::kNotDirectory);
  EXPECT_TRUE(files().RemoveDirectory(At("to-folder/")).ok());
  EXPECT_TRUE(files().RemoveFile(At("to-file")).ok());
  EXPECT_TRUE(files().RemoveFile(At("dangling")).ok());
  EXPECT_TRUE(files().RemoveDirectory(At("empty")).ok());
  EXPECT_EQ(files().RemoveFile(At("none")).kind, ErrorKind::kNotFound);
  EXPECT_TRUE(Exists("full/sub") && Exists("file"));
  EXPECT_FALSE(Exists("to-folder") || Exists("to-file") || Exists("dangling") || Exists("empty"));
}

TEST_F(FilesTest, RenamesReplaceOnlyWhereTheyMay) {
  WriteFile(At("other"), "other");
  EXPECT_TRUE(files().Rename(At("other"), At("file")).ok());
  EXPECT_EQ(ReadFile(At("file")), "other");
  EXPECT_TRUE(files().Rename(At("file"), At("full/sub/file")).ok());
  EXPECT_EQ(files().Rename(At("full"), At("full/sub/in")).kind, ErrorKind::kInvalid);
  EXPECT_EQ(files().Rename(At("full"), At(long_name_)).kind, ErrorKind::kNameTooLong);

  const auto keeping = [](const std::string& from, const std::string& to) {
    return files().RenameNoReplace(from, to);
  };
  const auto by_link = [](const std::string& from, const std::string& to) {
    return RenameByLink(from.c_str(), to.c_str());
  };
  const auto by_placeholder = [](const std::string& from, const std::string& to) {
    return RenameOverPlaceholder(from.c_str(), to.c_str(), fs::is_directory(from));
  };
  const std::function<Status(const std::string&, const std::string&)> ways[] = {keeping, by_link,
                                                                                by_placeholder};
  for (const auto& rename : ways) {
    for (const char* to : {"old", "full", "empty", "dangling"}) {
      WriteFile(At("new"), "new");
      WriteFile(At("old"), "old");
      fs::create_directory(At("folder"));
      EXPECT_EQ(rename(At("new"), At(to)).kind, ErrorKind::kExists) << to;
      EXPECT_EQ(rename(At("folder"), At(to)).kind, ErrorKind::kExists) << to;
    }
    EXPECT_EQ(ReadFile(At("old")), "old");
    EXPECT_EQ(rename(At("none"), At("free")).kind, ErrorKind::kNotFound);
    EXPECT_FALSE(Exists("free"));
    EXPECT_TRUE(rename(At("new"), At("free")).ok());
    EXPECT_TRUE(rename(At("folder"), At("free folder")).ok());
    EXPECT_EQ(ReadFile(At("free")), "new");
    EXPECT_FALSE(Exists("new") || Exists("folder"));
    fs::remove(At("free"));
    fs::remove(At("free folder"));
  }
}

TEST_F(FilesTest, ListsFoldersAndTellsAnErrorFromTheEnd) {
  for (const bool want_info : {false, true}) {
    std::unique_ptr<DirReader> reader;
    ASSERT_TRUE(files().OpenDirectory(folder_.path(), want_info, reader).ok());
    std::map<std::string, NodeInfo> found;
    DirItem item;
    bool done = false;
    while (reader->Next(item, done).ok() && !done) found[item.name.str()] = item.info;
    EXPECT_TRUE(done);
    EXPECT_EQ(found.size(), 9u);  // with "." and ".."
    EXPECT_EQ(found["."].kind, NodeKind::kDirectory);
    EXPECT_EQ(found["to-folder"].kind, NodeKind::kLink);
    EXPECT_EQ(found["fifo"].kind, NodeKind::kFifo);
    EXPECT_EQ(found["file"].size, want_info ? 7u : 0u);
  }
  std::unique_ptr<DirReader> reader;
  EXPECT_EQ(files().OpenDirectory(At("file"), false, reader).kind, ErrorKind::kNotDirectory);
  EXPECT_EQ(files().OpenDirectory(At("none"), false, reader).kind, ErrorKind::kNotFound);
  EXPECT_TRUE(files().OpenDirectory(At("to-folder"), false, reader).ok());
  EXPECT_EQ(files().OpenRealDirectory(At("to-folder/"), false, reader).kind,
            ErrorKind::kNotDirectory);
  NodeInfo target;
  EXPECT_TRUE(files().StatTarget(At("to-folder"), target).ok());
  EXPECT_EQ(target.kind, NodeKind::kDirectory);
  EXPECT_EQ(files().StatTarget(At("dangling"), target).kind, ErrorKind::kNotFound);
  ASSERT_TRUE(files().OpenDirectory(At("empty"), false, reader).ok());
  fs::remove(At("empty"));
  DirItem item;
  bool done = false;
  EXPECT_EQ(reader->Next(item, done).kind, ErrorKind::kNotFound);
  EXPECT_FALSE(done);
}

TEST_F(FilesTest, TriesAccessAsAnOrdinaryUser) {
  struct {
    const char* name;
    Access access;
    ErrorKind kind;
  } const cases[] = {
      {"file", Access::kRead, ErrorKind::kAccessDenied},
      {"file", Access::kWrite, ErrorKind::kNone},  // replacing asks nothing of the file
      {"file", Access::kReadWrite, ErrorKind::kAccessDenied},
      {"dangling", Access::kReadWrite, ErrorKind::kNone},
      {"none", Access::kWrite, ErrorKind::kNotFound},
      {"full/sub", Access::kRead, ErrorKind::kNone},
      {"full/sub", Access::kWrite, ErrorKind::kAccessDenied},
      {"empty", Access::kRead, ErrorKind::kAccessDenied},
      {"sticky/theirs", Access::kRead, ErrorKind::kNone},
      {"sticky/theirs", Access::kWrite, ErrorKind::kAccessDenied},
  };
  if (::geteuid() != 0) GTEST_SKIP() << "needs another user's files";
  fs::create_directory(At("sticky"));
  WriteFile(At("sticky/theirs"), "");
  fs::permissions(At("sticky"), fs::perms::all | fs::perms::sticky_bit);
  fs::permissions(At("file"), fs::perms::none);
  fs::permissions(At("full"), fs::perms(0555));
  fs::permissions(At("empty"), fs::perms(0711));
  fs::permissions(folder_.path(), fs::perms::all);
  ASSERT_EQ(::seteuid(65534), 0);
  for (const auto& c : cases) {
    EXPECT_EQ(files().TryAccess(At(c.name), c.access).kind, c.kind) << c.name;
  }
  ASSERT_EQ(::seteuid(0), 0);
}

}  // namespace
}  // namespace tolven::platform
