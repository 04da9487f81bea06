#include "client/event-path.h"

#include <algorithm>
#include <string>

#include "client/core/session-layout.h"
#include "platform/paths.h"

namespace tolven {

namespace {
constexpr size_t kLongestPath = 4095;
constexpr size_t kLongestComponent = 1023;

// A system that takes "\\" for a separator also has drives, streams and names without case.
bool HasDrives() { return platform::IsPathSeparator('\\'); }

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsWorkingDirectory(std::string_view name, bool ignore_case) {
  const std::string_view own = kWorkingDirectory;
  if (!ignore_case) return name == own;
  return std::equal(name.begin(), name.end(), own.begin(), own.end(),
                    [](char a, char b) { return Lower(a) == Lower(b); });
}
}  // namespace

ustring JoinPath(const ustring& root, std::string_view path) {
  if (path.empty() || path == "/") return root;
  std::string joined = root.str();
  if (!joined.empty() && platform::IsPathSeparator(joined.back())) joined.pop_back();
  if (path.front() != '/') joined += '/';
  joined += path;
  return ustring(std::move(joined));
}

bool IsPlainName(std::string_view name, bool ignore_case) {
  const bool drives = HasDrives();
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string_view::npos) {
    return false;
  }
  if (drives && name.find_first_of("\\:") != std::string_view::npos) return false;
  return !IsWorkingDirectory(name, ignore_case || drives);
}

bool IsReceivedPath(const ustring& path, bool ignore_case) {
  std::string_view rest = path.view();
  if (rest == "/") return true;
  if (rest.empty() || rest.size() > kLongestPath || !ustring::is_valid(path)) return false;
  while (!rest.empty()) {
    if (rest.front() != '/') return false;
    rest.remove_prefix(1);
    const std::string_view name = rest.substr(0, rest.find('/'));
    if (name.size() > kLongestComponent || !IsPlainName(name, ignore_case)) return false;
    rest.remove_prefix(name.size());
  }
  return true;
}

ustring FileStatusKey(const ustring& local_root, std::string_view path) {
  std::string key = local_root.str();
  if (path != "/") {
    if (key.ends_with('/')) key.pop_back();
    key += path;
  }
  std::replace(key.begin(), key.end(), '/', '\\');
  return ustring(key);
}

bool BaseName(std::string_view path, SplitPath& out) {
  path = path.substr(0, kLongestPath);
  if (path.empty() || path.back() == '/') return false;
  const size_t slash = path.rfind('/');
  const size_t name = slash == std::string_view::npos ? 0 : slash + 1;
  out.dir = path.substr(0, name == 0 ? 0 : slash);
  out.name = path.substr(name, kLongestComponent);
  return true;
}

// Components are short: a plain loop beats the library's search.
std::string_view PathWalker::Next() {
  size_t begin = 0;
  while (begin < rest_.size() && rest_[begin] == '/') ++begin;
  size_t end = begin;
  while (end < rest_.size() && rest_[end] != '/') ++end;
  const std::string_view component = rest_.substr(begin, end - begin);
  rest_.remove_prefix(end);
  return component.substr(0, kLongestComponent);
}

}  // namespace tolven
