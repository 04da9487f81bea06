// The file service of Windows. Links are not made here: the layer under which these tests run makes
// none, see attributes-test.cpp for what their attributes say.
#include <gmock/gmock.h>

#include <filesystem>
#include <map>

#include "platform/files.h"
#include "platform/wide-windows.h"
#include "support/temp-folder.h"

namespace tolven::platform {
namespace {

namespace fs = std::filesystem;
using test::FsPath;
using test::ReadFile;
using test::WriteFile;

class FilesTest : public ::testing::Test {
 protected:
  std::string At(const std::string& name) const { return (folder_ / name).str(); }

  void SetUp() override {
    WriteFile(At("file"), "content");
    fs::create_directories(FsPath(At("full/sub")));
    fs::create_directory(FsPath(At("empty")));
  }
  void TearDown() override {
    for (const auto& entry : fs::recursive_directory_iterator(FsPath(folder_.path()))) {
      fs::permissions(entry.path(), fs::perms::owner_all);
    }
  }

  DWORD Attributes(const std::string& name) const {
    return ::GetFileAttributesW(PathArgument(At(name)).c_str());
  }
  void SetAttributes(const std::string& name, DWORD attributes) const {
    ASSERT_TRUE(::SetFileAttributesW(PathArgument(At(name)).c_str(), attributes));
  }
  bool Exists(const std::string& name) const { return Attributes(name) != INVALID_FILE_ATTRIBUTES; }
  std::string NameOf(const std::string& name) const {
    ustring found;
    EXPECT_TRUE(files().NameOnDisk(At(name), found).ok()) << name;
    return found.str();
  }

  test::TempFolder folder_;
  const std::string long_name_ = std::string(300, 'n');
};

constexpr DWORD kShareEverything = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Opens a file as another program might; shares what `share` says.
ScopedHandle HoldOpen(const std::string& path, DWORD access, DWORD share) {
  return ScopedHandle(::CreateFileW(PathArgument(path).c_str(), access, share, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

TEST_F(FilesTest, OpensByModeAndNeverWaits) {
  SetAttributes("file", FILE_ATTRIBUTE_NORMAL);
  WriteFile(At("hidden"), "content");
  SetAttributes("hidden", FILE_ATTRIBUTE_HIDDEN);
  struct {
    const char* name;
    OpenMode mode;
    ErrorKind kind;
    const char* after;  // the content after "X" was written; null when nothing can be
  } const cases[] = {
      {"file", OpenMode::kRead, ErrorKind::kNone, nullptr},
      {"none", OpenMode::kRead, ErrorKind::kNotFound, nullptr},
      {"full", OpenMode::kRead, ErrorKind::kIsDirectory, nullptr},
      {"file/below", OpenMode::kRead, ErrorKind::kNotFound, nullptr},
      {"nul.txt", OpenMode::kRead, ErrorKind::kNameTooLong, nullptr},
      {"file:stream", OpenMode::kTruncate, ErrorKind::kNameTooLong, nullptr},
      {"none", OpenMode::kModify, ErrorKind::kNotFound, nullptr},
      {"file", OpenMode::kModify, ErrorKind::kNone, "Xontent"},
      {"file", OpenMode::kAppend, ErrorKind::kNone, "XontentX"},
      {"file", OpenMode::kTruncate, ErrorKind::kNone, "X"},
      {"hidden", OpenMode::kTruncate, ErrorKind::kNone, "X"},
      {"file", OpenMode::kCreateExclusive, ErrorKind::kExists, nullptr},
      {"new", OpenMode::kCreateExclusive, ErrorKind::kNone, "X"},
      {"new2", OpenMode::kAppend, ErrorKind::kNone, "X"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ScopedFile file;
    EXPECT_EQ(files().Open(At(c.name), c.mode, *file.receive()).kind, c.kind);
    EXPECT_EQ(file.valid(), c.kind == ErrorKind::kNone);
    if (!file.valid()) continue;
    DWORD flags = HANDLE_FLAG_INHERIT;
    EXPECT_TRUE(::GetHandleInformation(reinterpret_cast<HANDLE>(file.get()), &flags));
    EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);
    std::size_t written = 0;
    EXPECT_EQ(files().Write(file.get(), "X", 1, written).ok(), c.after != nullptr);
    if (c.after != nullptr) {
      EXPECT_EQ(ReadFile(At(c.name)), c.after);
    }
  }
}

TEST_F(FilesTest, ReadsAndSeeks) {
  ScopedFile file;
  ASSERT_TRUE(files().Open(At("file"), OpenMode::kModify, *file.receive()).ok());
  char buffer[16];
  std::size_t got = 1;
  ASSERT_TRUE(files().Seek(file.get(), 5).ok());
  ASSERT_TRUE(files().Read(file.get(), buffer, sizeof buffer, got).ok());
  EXPECT_EQ(std::string(buffer, got), "nt");
  ASSERT_TRUE(files().Read(file.get(), buffer, sizeof buffer, got).ok());
  EXPECT_EQ(got, 0u);
  ASSERT_TRUE(files().Truncate(file.get(), 5ULL << 30).ok());
  ASSERT_TRUE(files().Sync(file.get()).ok());
  NodeInfo info;
  ASSERT_TRUE(files().StatFile(file.get(), info).ok());
  EXPECT_EQ(info.size, 5ULL << 30);
  ASSERT_TRUE(files().Truncate(file.get(), 0).ok());
  EXPECT_EQ(files().Seek(file.get(), ~0ULL).kind, ErrorKind::kInvalid);
}

TEST_F(FilesTest, LooksAtNamesAsTheDiskHasThem) {
  WriteFile(At("full/\xC3\x84\xE2\x82\xAC\xF0\x9F\x98\x80 long name.text"), "12");
  struct {
    std::string name;
    ErrorKind error;
    NodeKind kind;
  } const cases[] = {
      {"file", ErrorKind::kNone, NodeKind::kFile},
      {"FILE", ErrorKind::kNone, NodeKind::kFile},
      {"full", ErrorKind::kNone, NodeKind::kDirectory},
      {"full///", ErrorKind::kNone, NodeKind::kDirectory},
      {"none", ErrorKind::kNotFound, NodeKind::kFile},
      {"none/below", ErrorKind::kNotFound, NodeKind::kFile},
      {"file/below", ErrorKind::kNotFound, NodeKind::kFile},
      {"fil?", ErrorKind::kNameTooLong, NodeKind::kFile},
      {"con", ErrorKind::kNameTooLong, NodeKind::kFile},
      {"file.", ErrorKind::kNameTooLong, NodeKind::kFile},
      {long_name_, ErrorKind::kNameTooLong, NodeKind::kFile},
  };
  for (const auto& c : cases) {
    NodeInfo found;
    EXPECT_EQ(files().Stat(At(c.name), found).kind, c.error) << c.name;
    EXPECT_EQ(found.kind, c.kind) << c.name;
  }
  EXPECT_EQ(NameOf("FULL/SUB/"), "sub");
  const std::string spelled = "full/\xC3\x84\xE2\x82\xAC\xF0\x9F\x98\x80 long name.text";
  const std::string shouted = "FULL/\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80 LONG name.TEXT";
  ustring real;
  ASSERT_TRUE(files().RealPath(At(shouted), real).ok());
  EXPECT_TRUE(real.str().ends_with(spelled)) << real.str();
  EXPECT_EQ(real.view().substr(1, 2), ":/");
  wchar_t short_path[1024];
  const PathArgument whole(At(spelled));
  ASSERT_GT(::GetShortPathNameW(whole.c_str(), short_path, 1024), 0u);
  ASSERT_TRUE(files().RealPath(FromWide(short_path), real).ok());
  EXPECT_TRUE(real.str().ends_with(spelled)) << real.str();
  EXPECT_EQ(files().RealPath(At("none"), real).kind, ErrorKind::kNotFound);

  NodeInfo file, again, target;
  ASSERT_TRUE(files().Stat(At("file"), file).ok());
  ASSERT_TRUE(files().Rename(At("file"), At("moved")).ok());
  ASSERT_TRUE(files().Stat(At("moved"), again).ok());
  EXPECT_EQ(file.file_id, again.file_id);
  EXPECT_EQ(file.volume_id, again.volume_id);
  EXPECT_EQ(file.size, 7u);
  EXPECT_TRUE(files().StatTarget(At("full"), target).ok());
  EXPECT_EQ(target.kind, NodeKind::kDirectory);
  const ustring root = folder_.path().substr(0, 3);
  ASSERT_TRUE(files().NameOnDisk(root, real).ok());
  EXPECT_EQ(real, root);
}

TEST_F(FilesTest, PathsBeyondTheOldLimit) {
  std::string deep = At("deep");
  ASSERT_TRUE(files().MakeDirectory(deep).ok());
  while (deep.size() < 600) {
    deep += "/" + std::string(60, 'd');
    ASSERT_TRUE(files().MakeDirectory(deep).ok());
  }
  ScopedFile file;
  ASSERT_TRUE(files().Open(deep + "/f", OpenMode::kCreateExclusive, *file.receive()).ok());
  file.Reset();
  ASSERT_TRUE(files().Rename(deep + "/f", deep + "/g").ok());
  std::unique_ptr<DirReader> reader;
  ASSERT_TRUE(files().OpenRealDirectory(deep, true, reader).ok());
  DirItem item;
  bool done = false;
  std::vector<std::string> names;
  while (reader->Next(item, done).ok() && !done) names.push_back(item.name.str());
  EXPECT_THAT(names, ::testing::UnorderedElementsAre(".", "..", "g"));
  reader.reset();
  ASSERT_TRUE(files().RemoveFile(deep + "/g").ok());
  for (; deep.size() > folder_.path().size(); deep.resize(deep.rfind('/'))) {
    ASSERT_TRUE(files().RemoveDirectory(deep).ok()) << deep;
  }
}

TEST_F(FilesTest, SetsTimesAndAttributes) {
  NodeInfo info;
  for (const std::int64_t time :
       {std::int64_t{1'500'000'000'123'456'700}, std::int64_t{-1'500'000'000}}) {
    ASSERT_TRUE(files().SetModifiedTime(At("file"), time).ok());
    ASSERT_TRUE(files().Stat(At("file"), info).ok());
    EXPECT_EQ(info.mtime_ns, time);
  }
  EXPECT_TRUE(files().SetModifiedTime(At("full"), 1'000'000'000).ok());
  EXPECT_EQ(info.mode, 0666u);
  ASSERT_TRUE(files().SetHidden(At("file")).ok());
  ASSERT_TRUE(files().SetMode(At("file"), 0444).ok());
  ASSERT_TRUE(files().Stat(At("file"), info).ok());
  EXPECT_EQ(info.mode, 0444u);
  EXPECT_TRUE(info.read_only);
  EXPECT_TRUE(info.hidden);
  EXPECT_TRUE(files().SetModifiedTime(At("file"), 2'000'000'000).ok());
  ASSERT_TRUE(files().SetReadOnly(At("file"), false).ok());
  EXPECT_EQ(Attributes("file") & FILE_ATTRIBUTE_READONLY, 0u);
  ASSERT_TRUE(files().MakeDirectoryMode(At("made"), 0755).ok());
  EXPECT_EQ(files().MakeDirectory(At("made")).kind, ErrorKind::kExists);
  EXPECT_EQ(files().MakeDirectory(At("none/made")).kind, ErrorKind::kNotFound);
  EXPECT_EQ(files().MakeDirectory(At("aux")).kind, ErrorKind::kNameTooLong);
}

TEST_F(FilesTest, RemovesReadOnlyObjectsToo) {
  SetAttributes("file", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  SetAttributes("empty", FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(files().RemoveDirectory(At("full")).kind, ErrorKind::kNotEmpty);
  EXPECT_EQ(files().RemoveFile(At("full")).kind, ErrorKind::kIsDirectory);
  EXPECT_EQ(files().RemoveDirectory(At("file")).kind, ErrorKind::kNotDirectory);
  EXPECT_TRUE(files().RemoveFile(At("file")).ok());
  EXPECT_TRUE(files().RemoveDirectory(At("empty")).ok());
  EXPECT_EQ(files().RemoveFile(At("none")).kind, ErrorKind::kNotFound);
  EXPECT_TRUE(Exists("full/sub"));
  EXPECT_FALSE(Exists("file") || Exists("empty"));
  // One that cannot be removed keeps its attribute.
  WriteFile(At("held"), "x");
  SetAttributes("held", FILE_ATTRIBUTE_READONLY);
  const ScopedHandle holder = HoldOpen(At("held"), GENERIC_READ, FILE_SHARE_READ);
  ASSERT_TRUE(holder.valid());
  EXPECT_EQ(files().RemoveFile(At("held")).kind, ErrorKind::kBusy);
  EXPECT_NE(Attributes("held") & FILE_ATTRIBUTE_READONLY, 0u);
}

TEST_F(FilesTest, RenamesReplaceOnlyWhereTheyMay) {
  WriteFile(At("other"), "other");
  SetAttributes("file", FILE_ATTRIBUTE_READONLY);
  EXPECT_TRUE(files().Rename(At("other"), At("file")).ok());
  EXPECT_EQ(ReadFile(At("file")), "other");
  EXPECT_NE(Attributes("file") & FILE_ATTRIBUTE_READONLY, 0u);
  EXPECT_TRUE(files().RenameUnsynced(At("file"), At("full/sub/file")).ok());
  EXPECT_EQ(files().Rename(At("full"), At(long_name_)).kind, ErrorKind::kNameTooLong);
  EXPECT_EQ(files().Rename(At("full"), At("a:b")).kind, ErrorKind::kNameTooLong);
  WriteFile(At("new"), "new");
  WriteFile(At("old"), "old");
  for (const char* to : {"old", "OLD", "full", "empty"}) {
    EXPECT_EQ(files().RenameNoReplace(At("new"), At(to)).kind, ErrorKind::kExists) << to;
  }
  EXPECT_EQ(ReadFile(At("old")), "old");
  EXPECT_EQ(files().RenameNoReplace(At("none"), At("free")).kind, ErrorKind::kNotFound);
  EXPECT_TRUE(files().RenameNoReplace(At("new"), At("free")).ok());
  EXPECT_TRUE(files().RenameNoReplace(At("empty"), At("free folder")).ok());
  EXPECT_FALSE(Exists("new") || Exists("empty"));
  // Another program reads the target and does not share its removal.
  WriteFile(At("new"), "new");
  const ScopedHandle holder = HoldOpen(At("old"), GENERIC_READ, FILE_SHARE_READ);
  ASSERT_TRUE(holder.valid());
  EXPECT_FALSE(files().Rename(At("new"), At("old")).ok());
  EXPECT_EQ(ReadFile(At("old")), "old");
  EXPECT_EQ(ReadFile(At("new")), "new");
}

TEST_F(FilesTest, ChangesTheCaseOfANameAlone) {
  for (const char* name : {"File", "fILE", "FILE"}) {
    ASSERT_TRUE(files().Rename(At(NameOf("file")), At(name)).ok());
    EXPECT_EQ(NameOf("file"), name);
    EXPECT_EQ(ReadFile(At("file")), "content");
  }
  ASSERT_TRUE(files().RenameNoReplace(At("full"), At("FULL")).ok());
  EXPECT_EQ(NameOf("full"), "FULL");
  EXPECT_TRUE(Exists("FULL/sub"));
  EXPECT_EQ(files().Rename(At("none"), At("NONE")).kind, ErrorKind::kNotFound);
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(FsPath(folder_.path()))) ++count;
  EXPECT_EQ(count, 3u);
}

TEST_F(FilesTest, ListsFoldersAndTellsAnErrorFromTheEnd) {
  SetAttributes("file", FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_TEMPORARY);
  for (const bool want_info : {false, true}) {
    std::unique_ptr<DirReader> reader;
    ASSERT_TRUE(files().OpenDirectory(folder_.path(), want_info, reader).ok());
    std::map<std::string, NodeInfo> found;
    DirItem item;
    bool done = false;
    while (reader->Next(item, done).ok() && !done) found[item.name.str()] = item.info;
    EXPECT_TRUE(done);
    EXPECT_EQ(found.size(), 5u);  // with "." and ".."
    EXPECT_EQ(found["."].kind, NodeKind::kDirectory);
    EXPECT_EQ(found["file"].size, want_info ? 7u : 0u);
    EXPECT_EQ(found["file"].hidden, want_info);
  }
  std::unique_ptr<DirReader> reader;
  EXPECT_EQ(files().OpenDirectory(At("file"), false, reader).kind, ErrorKind::kNotDirectory);
  EXPECT_EQ(files().OpenDirectory(At("none"), false, reader).kind, ErrorKind::kNotFound);
  EXPECT_EQ(files().OpenDirectory(At("*"), false, reader).kind, ErrorKind::kNameTooLong);
}

TEST_F(FilesTest, TriesAccessAgainstOtherPrograms) {
  WriteFile(At("read-only"), "");
  SetAttributes("read-only", FILE_ATTRIBUTE_READONLY);
  for (const char* name : {"kept", "shared", "alone"}) WriteFile(At(name), "");
  const ScopedHandle kept = HoldOpen(At("kept"), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  const ScopedHandle shared = HoldOpen(At("shared"), GENERIC_READ, kShareEverything);
  const ScopedHandle alone = HoldOpen(At("alone"), GENERIC_READ, 0);
  struct {
    const char* name;
    Access access;
    ErrorKind kind;
  } const cases[] = {
      {"file", Access::kReadWrite, ErrorKind::kNone},
      {"none", Access::kWrite, ErrorKind::kNotFound},
      {"full", Access::kReadWrite, ErrorKind::kNone},
      {"read-only", Access::kReadWrite, ErrorKind::kNone},
      {"kept", Access::kRead, ErrorKind::kNone},
      // It could be written, but not replaced.
      {"kept", Access::kWrite, ErrorKind::kBusy},
      {"kept", Access::kReadWrite, ErrorKind::kBusy},
      {"shared", Access::kReadWrite, ErrorKind::kNone},
      {"alone", Access::kRead, ErrorKind::kBusy},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(files().TryAccess(At(c.name), c.access).kind, c.kind) << c.name;
  }
}

}  // namespace
}  // namespace tolven::platform
