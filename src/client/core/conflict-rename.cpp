#include "client/core/conflict-rename.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

#include "lib/file-op.h"
#include "lib/log.h"
#include "platform/clock.h"
#include "platform/paths.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "conflict_rename_debug";
constexpr char kWhiteSpaceTag[] = "WhiteSpaceConflict";
constexpr int kTries = 100;
// Bytes of one name. File systems count bytes or UTF-16 units, of which there are never more.
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestComputerName = 64;
constexpr std::size_t kRoomForNumber = 4;  // "_100"

// The first `count` bytes at most, without half a character at the end.
std::string_view Shorten(std::string_view text, std::size_t count) {
  if (text.size() <= count) return text;
  while (count > 0 && (static_cast<unsigned char>(text[count]) & 0xC0) == 0x80) --count;
  return text.substr(0, count);
}

std::string LocalTime() {
  const std::tm local = fmt::localtime(static_cast<std::time_t>(platform::clock().WallSeconds()));
  char text[128];
  return {text, std::strftime(text, sizeof text, "%b-%d-%H%M%S-%Y", &local)};
}

std::string Suffix(const ustring& computer_name, const ustring& tag) {
  std::string computer(Shorten(computer_name.view(), kLongestComputerName));
  std::replace_if(
      computer.begin(), computer.end(), [](char c) { return c == '/' || c == '\\'; }, '-');
  return "_" + computer + "_" + LocalTime() + "_" + tag.str();
}

// A path around the place where the suffix goes.
struct Split {
  std::string_view dir;  // with its separator
  std::string_view stem, extension;
};

Split SplitPath(std::string_view path) {
  std::size_t name = path.size();
  while (name > 0 && !platform::IsPathSeparator(path[name - 1])) --name;
  Split split{path.substr(0, name), path.substr(name), {}};
  const std::size_t dot = split.stem.rfind('.');
  // A path without a folder counts as one without an extension.
  if (name == 0 || dot == std::string_view::npos || dot + 1 == split.stem.size()) return split;
  split.extension = split.stem.substr(dot);
  split.stem = split.stem.substr(0, dot);
  return split;
}

// Makes room for the suffix, at the cost of the extension only when that is most of the name.
void FitName(Split& split, std::size_t suffix_size) {
  const std::size_t taken = suffix_size + kRoomForNumber;
  const std::size_t room = taken < kLongestName ? kLongestName - taken : 0;
  split.extension = Shorten(split.extension, room);
  split.stem = Shorten(split.stem, room - split.extension.size());
}

}  // namespace

ustring GenerateNewFileName(const ustring& path, const ustring& computer_name, const ustring& tag) {
  const std::string suffix = Suffix(computer_name, tag);
  Split split = SplitPath(path.view());
  FitName(split, suffix.size());
  std::string front(split.dir);
  front.append(split.stem).append(suffix);
  ustring candidate(front + std::string(split.extension));
  for (int i = 1; i <= kTries && IsFileExist(candidate, false); ++i) {
    candidate = ustring(front + "_" + std::to_string(i) + std::string(split.extension));
  }
  return candidate;
}

int ConflictRename(const ustring& path, const ustring& computer_name, const ustring& tag) {
  const ustring to = GenerateNewFileName(path, computer_name, tag);
  const int code = FSRenameNoReplace(path, to);
  if (code != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] conflict-rename(%d): ConflictRename failed. From:[%s] To:[%s] err = "
                   L"[%d]\n",
                   __LINE__, path, to, code);
    return code < 0 ? code : -1;
  }
  Logger::LogMsg(Logger::L_INFO, kCategory,
                 L"[INFO] conflict-rename(%d): ConflictRename from [%s] to [%s], tag [%s].\n",
                 __LINE__, path, to, tag);
  return 0;
}

namespace {

int RenameAside(const ustring& from, const ustring& to) {
  const int code = FSRenameNoReplace(from, to);
  if (code != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] conflict-rename(%d): WhiteSpaceConflictRename failed. From:[%s] "
                   L"To:[%s] err=[%d]\n",
                   __LINE__, from, to, code);
    return code < 0 ? code : -1;
  }
  Logger::LogMsg(Logger::L_INFO, kCategory,
                 L" [INFO] conflict-rename(%d): WhiteSpaceConflictRename from [%s] to [%s].\n",
                 __LINE__, from, to);
  return 0;
}

}  // namespace

int WhiteSpaceConflictRename(const ustring& path, const ustring& computer_name,
                             const ustring& tag) {
  const std::size_t slash = path.rfind("/");
  const std::size_t name = slash == ustring::npos ? 0 : slash + 1;
  ustring base(path.view().substr(name));
  base.rtrim(" ");
  if (base.empty()) return ConflictRename(path, computer_name, tag);

  ustring to = ustring(path.view().substr(0, name)) + base;
  if (IsFileExist(to, false)) to = GenerateNewFileName(to, computer_name, kWhiteSpaceTag);
  const int code = RenameAside(path, to);
  if (code != 0 || tag == kWhiteSpaceTag) return code;
  return RenameAside(to, GenerateNewFileName(to, computer_name, tag));
}

}  // namespace tolven
