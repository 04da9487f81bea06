#include "platform/mount-table-linux.h"

#include <charconv>
#include <set>

namespace tolven::platform {

namespace {

std::vector<std::string_view> Words(std::string_view line) {
  std::vector<std::string_view> words;
  while (!line.empty()) {
    const std::size_t end = line.find(' ');
    words.push_back(line.substr(0, end));
    line.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
  }
  return words;
}

bool IsOctal(char c) { return c >= '0' && c <= '7'; }

// Blanks, tabs, line ends and backslashes are written as a backslash and three octal digits.
std::string Unescape(std::string_view word) {
  std::string text;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (word[i] == '\\' && i + 3 < word.size() && IsOctal(word[i + 1]) && IsOctal(word[i + 2]) &&
        IsOctal(word[i + 3])) {
      text +=
          static_cast<char>((word[i + 1] - '0') * 64 + (word[i + 2] - '0') * 8 + word[i + 3] - '0');
      i += 3;
    } else {
      text += word[i];
    }
  }
  return text;
}

// 36 35 98:0 /root /point options [optional fields] - type source options
bool ParseLine(std::string_view line, Mount& mount) {
  constexpr std::size_t kFixedFields = 6;
  const std::vector<std::string_view> words = Words(line);
  std::size_t dash = kFixedFields;
  while (dash < words.size() && words[dash] != "-") ++dash;
  if (dash + 1 >= words.size()) return false;
  const std::string_view id = words[0];
  if (std::from_chars(id.data(), id.data() + id.size(), mount.id).ec != std::errc()) return false;
  mount.device = words[2];
  mount.point = Unescape(words[4]);
  mount.type = words[dash + 1];
  return true;
}

bool IsPrefix(std::string_view point, std::string_view path) {
  if (point == "/") return true;
  return path.starts_with(point) && (path.size() == point.size() || path[point.size()] == '/');
}

}  // namespace

std::vector<Mount> ParseMounts(std::string_view text) {
  std::vector<Mount> mounts;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    Mount mount;
    if (ParseLine(text.substr(0, end), mount)) mounts.push_back(std::move(mount));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return mounts;
}

const Mount* FindMount(const std::vector<Mount>& mounts, std::string_view path) {
  const Mount* best = nullptr;
  for (const Mount& mount : mounts) {
    if (!IsPrefix(mount.point, path)) continue;
    if (best == nullptr || mount.point.size() >= best->point.size()) best = &mount;
  }
  return best;
}

std::vector<std::string> GonePoints(const std::vector<Mount>& before,
                                    const std::vector<Mount>& after) {
  std::set<std::string_view> left;
  for (const Mount& mount : after) left.insert(mount.point);
  std::vector<std::string> gone;
  for (const Mount& mount : before) {
    // Two file systems on one point are told once.
    if (left.insert(mount.point).second) gone.push_back(mount.point);
  }
  return gone;
}

}  // namespace tolven::platform
