#include "server/store/file-content-store.h"

#include <vector>

#include "lib/file-op.h"
#include "lib/log.h"
#include "platform/files.h"
#include "server/store/sha256.h"

namespace tolven::server {

namespace {

constexpr std::size_t kReadSize = 256 * 1024;
constexpr std::size_t kFolderDigits = 2;

// The SHA-256 of an open file's bytes, and their count. False when they cannot be read.
bool Hash(platform::NativeFile file, std::string& sha256, std::uint64_t& size) {
  Sha256 sum;
  std::vector<char> buffer(kReadSize);
  size = 0;
  for (std::size_t got = 1; got != 0; size += got) {
    if (!platform::files().Read(file, buffer.data(), buffer.size(), got).ok()) return false;
    sum.Update(buffer.data(), got);
  }
  sha256 = sum.Finish();
  return !sha256.empty();
}

// Fills in what the caller of Add does not know.
bool Identify(platform::NativeFile file, Content& content) {
  if (content.sha256.empty()) return Hash(file, content.sha256, content.size);
  platform::NodeInfo info;
  if (!platform::files().StatFile(file, info).ok()) return false;
  content.size = info.size;
  return true;
}

int Fail(int line, const ustring& path) {
  Logger::LogMsg(Logger::L_ERR, "server", L"[ERROR] content-store(%d): '%s' could not be stored\n",
                 line, path);
  return -1;
}

void ListFolder(const ustring& path, std::vector<ustring>& names) {
  DIR_HANDLE folder;
  FSOpenDir(path, 0, folder);
  DIR_ENTRY entry;
  while (FSReadDir(folder, entry) == 1) {
    if (entry.name != "." && entry.name != "..") names.push_back(entry.name);
  }
  FSCloseDir(folder);
}

}  // namespace

FileContentStore::FileContentStore(ustring folder) : folder_(std::move(folder)) {}

// All folders are made and their names synced here, so that an upload syncs one folder only.
int FileContentStore::Open() {
  if (FSMKDir(folder_, true) != 0) return -1;
  constexpr const char* kDigits = "0123456789abcdef";
  for (int i = 0; i < 256; ++i) {
    const char name[] = {'/', kDigits[i >> 4], kDigits[i & 15], '\0'};
    if (FSMKDir(folder_ + name, false) != 0) return -1;
  }
  return platform::files().SyncDirectory(folder_).ok() ? 0 : -1;
}

ustring FileContentStore::PathOf(const std::string& sha256) {
  if (sha256.size() <= kFolderDigits) return {};
  return folder_ + "/" +
         ustring(sha256.substr(0, kFolderDigits) + "/" + sha256.substr(kFolderDigits));
}

int FileContentStore::Add(const ustring& file, const std::string& md4, Content& content) {
  platform::Files& files = platform::files();
  platform::ScopedFile open;
  if (!files.Open(file, platform::OpenMode::kModify, *open.receive()).ok()) {
    return Fail(__LINE__, file);
  }
  content.id = 0;
  content.md4 = md4;
  if (!Identify(open.get(), content)) return Fail(__LINE__, file);
  const ustring target = PathOf(content.sha256);
  const ustring folder(target.view().substr(0, target.view().rfind('/')));
  if (Verify(content) == 1) {
    open.Reset();
    // Another thread may have just put it there, and not synced its name yet.
    if (!files.SyncDirectory(folder).ok()) return Fail(__LINE__, file);
    FSRemove(file, false);
    return 0;
  }
  if (!files.Sync(open.get()).ok()) return Fail(__LINE__, file);
  open.Reset();
  // The folder that it comes from may find it again after a loss of power: nothing refers to it
  // there, and what lies there is swept.
  const bool in_place = files.RenameUnsynced(file, target).ok() && files.SyncDirectory(folder).ok();
  return in_place ? 0 : Fail(__LINE__, file);
}

int FileContentStore::Verify(const Content& content) {
  platform::ScopedFile open;
  const platform::Status status =
      platform::files().Open(PathOf(content.sha256), platform::OpenMode::kRead, *open.receive());
  if (status.is(platform::ErrorKind::kNotFound)) return 0;
  std::string sha256;
  std::uint64_t size = 0;
  if (!status.ok() || !Hash(open.get(), sha256, size)) return -1;
  return sha256 == content.sha256 && size == content.size ? 1 : 0;
}

int FileContentStore::List(const std::function<void(const std::string&)>& use) {
  std::vector<ustring> folders;
  ListFolder(folder_, folders);
  for (const ustring& folder : folders) {
    std::vector<ustring> names;
    ListFolder(folder_ + "/" + folder, names);
    for (const ustring& name : names) use(folder.str() + name.str());
  }
  return 0;
}

}  // namespace tolven::server
