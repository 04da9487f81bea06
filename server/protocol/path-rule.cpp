#include "server/protocol/path-rule.h"

#include <algorithm>

namespace tolven::server {

namespace {

constexpr std::string_view kWorkingDirectory = ".zentrovaworkingdirectory";
constexpr std::size_t kMaxPath = 4096;
constexpr std::size_t kMaxComponent = 255;

// Without case, since it must not reach a client on a system that ignores it either.
bool IsWorkingDirectory(std::string_view name) {
  return std::equal(name.begin(), name.end(), kWorkingDirectory.begin(), kWorkingDirectory.end(),
                    [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a + 32 : a) == b; });
}

// Calls `good` with each component until it says no.
template <class Predicate>
bool AllComponents(std::string_view path, Predicate good) {
  while (!path.empty()) {
    path.remove_prefix(1);
    const std::string_view name = path.substr(0, path.find('/'));
    if (!good(name)) return false;
    path.remove_prefix(name.size());
  }
  return true;
}

}  // namespace

bool IsPathInView(const ustring& path) {
  const std::string_view text = path.view();
  if (text == "/") return true;
  if (text.empty() || text.front() != '/' || text.size() > kMaxPath || !ustring::is_valid(path)) {
    return false;
  }
  return AllComponents(text, [](std::string_view name) {
    return !name.empty() && name != "." && name != ".." && !IsWorkingDirectory(name);
  });
}

bool IsStorableName(std::string_view path) {
  const bool fits = AllComponents(path, [](std::string_view name) {
    const bool control = std::any_of(name.begin(), name.end(),
                                     [](char c) { return static_cast<unsigned char>(c) < 0x20; });
    return name.size() <= kMaxComponent && !control;
  });
  return fits && !path.ends_with(' ') && !path.ends_with('.');
}

std::string_view ParentOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string_view::npos ? "/" : path.substr(0, slash);
}

std::string_view RelativeTo(std::string_view root, std::string_view path) {
  if (root != "/") path.remove_prefix(root.size());
  return path.empty() ? "/" : path;
}

}  // namespace tolven::server
