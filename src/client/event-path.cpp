#include "client/event-path.h"

#include <algorithm>

namespace tolven {

namespace {
constexpr size_t kLongestPath = 4095;
constexpr size_t kLongestComponent = 1023;
}  // namespace

bool BaseName(std::string_view path, SplitPath& out) {
  path = path.substr(0, kLongestPath);
  if (path.empty() || path.back() == '/') return false;
  const size_t slash = path.rfind('/');
  const size_t name = slash == std::string_view::npos ? 0 : slash + 1;
  out.dir = path.substr(0, name == 0 ? 0 : slash);
  out.name = path.substr(name, kLongestComponent);
  return true;
}

std::string_view PathWalker::Next() {
  const size_t begin = std::min(rest_.find_first_not_of('/'), rest_.size());
  const size_t end = std::min(rest_.find('/', begin), rest_.size());
  const std::string_view component = rest_.substr(begin, end - begin);
  rest_.remove_prefix(end);
  return component.substr(0, kLongestComponent);
}

}  // namespace tolven
