#include "client/event-path.h"

#include <algorithm>
#include <string>

namespace tolven {

namespace {
constexpr size_t kLongestPath = 4095;
constexpr size_t kLongestComponent = 1023;
}  // namespace

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
