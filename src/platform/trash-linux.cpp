// The desktop's home trash: the object goes to Trash/files, and a file of the same name with
// ".trashinfo" behind it in Trash/info says where it came from and when.
#include <sys/stat.h>
#include <time.h>

#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/errno-linux.h"
#include "platform/files.h"
#include "platform/identity.h"
#include "platform/node-linux.h"
#include "platform/rename-linux.h"
#include "platform/service-slot.h"
#include "platform/trash.h"

namespace tolven::platform {

namespace {

constexpr std::string_view kInfoSuffix = ".trashinfo";
constexpr std::size_t kLongestName = 255;
constexpr int kNumberedNames = 100;
constexpr int kMostNames = 10'000;

std::string PercentEncode(std::string_view path) {
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/";
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char c : path) {
    if (kPlain.find(c) != std::string_view::npos) {
      text += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      text += '%';
      text += kDigits[byte >> 4];
      text += kDigits[byte & 15];
    }
  }
  return text;
}

std::string InfoText(std::string_view path) {
  const time_t now = clock().WallSeconds();
  tm local{};
  ::localtime_r(&now, &local);
  char date[32];
  const std::size_t size = ::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  return "[Trash Info]\nPath=" + PercentEncode(path) + "\nDeletionDate=" + std::string(date, size) +
         "\n";
}

// The attempt's name: that of the object, then with a number, then with one that nobody has drawn.
std::string Candidate(std::string_view name, int attempt) {
  std::string suffix;
  if (attempt > 1) suffix = "." + std::to_string(attempt);
  if (attempt > kNumberedNames) suffix = "." + std::to_string(clock().PerformanceCounter());
  std::size_t room = kLongestName - suffix.size() - kInfoSuffix.size();
  if (room < name.size()) {
    // No character is cut in two.
    while (room > 0 && (static_cast<unsigned char>(name[room]) & 0xC0) == 0x80) --room;
    name = name.substr(0, room);
  }
  return std::string(name) + suffix;
}

bool IsFolder(const std::string& path, dev_t& device) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
  device = st.st_dev;
  return true;
}

// Creates the information file, which takes the name for the object as well.
Status WriteInfo(const std::string& path, const std::string& text) {
  ScopedFile file;
  Status status = files().Open(path, OpenMode::kCreateExclusive, *file.receive());
  if (!status.ok()) return status;
  std::size_t written = 0;
  status = files().Write(file.get(), text.data(), text.size(), written);
  if (!status.ok()) (void)files().RemoveFile(path);
  return status;
}

class LinuxTrash : public Trash {
 public:
  Status MoveToTrash(const ustring& path) override {
    const PathArgument argument(path);
    struct stat object {};
    if (::lstat(argument.c_str(), &object) != 0) return LastError();
    ustring data;
    if (!identity().LocalAppData(data).ok()) return kNoTrash;
    const std::string content = data.str() + "/Trash/files/";
    const std::string info = data.str() + "/Trash/info/";
    dev_t content_device = 0;
    dev_t info_device = 0;
    if (!IsFolder(content, content_device) || !IsFolder(info, info_device)) return kNoTrash;
    if (content_device != object.st_dev) return kNoTrash;

    const std::string text = InfoText(argument.view());
    for (int attempt = 1; attempt <= kMostNames; ++attempt) {
      const std::string name = Candidate(NameOf(argument.view()), attempt);
      const std::string info_path = info + name + std::string(kInfoSuffix);
      Status status = WriteInfo(info_path, text);
      if (status.is(ErrorKind::kExists)) continue;
      if (!status.ok()) return status;
      status = RenameKeeping(argument.c_str(), (content + name).c_str());
      if (status.ok()) return status;
      (void)files().RemoveFile(info_path);
      // One file system mounted at two places is two for a rename.
      if (status.code == EXDEV) return kNoTrash;
      if (!status.is(ErrorKind::kExists)) return status;
    }
    return StatusFromErrno(EEXIST);
  }

 private:
  static constexpr Status kNoTrash{ErrorKind::kNotSupported, ENOTSUP};
};

using Slot = ServiceSlot<Trash, LinuxTrash>;

}  // namespace

Trash& trash() { return Slot::Get(); }
Trash* SetTrash(Trash* trash) { return Slot::Set(trash); }

}  // namespace tolven::platform
