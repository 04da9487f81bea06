#include "filter/glob.h"

#include <cstddef>
#include <string_view>

#include "filter/fold.h"

namespace tolven {

namespace {

// Cuts `text` behind the first place where `run` occurs.
bool SkipPast(std::string_view& text, std::string_view run) {
  while (text.size() >= run.size()) {
    if (fold::StartsWith(text, run)) {
      text.remove_prefix(run.size());
      return true;
    }
    text.remove_prefix(1);
  }
  return false;
}

}  // namespace

int _filter_glob(const char* str, const char* pattern) {
  std::string_view text = str, rest = pattern;
  std::size_t star = rest.find('*');
  if (star == std::string_view::npos) return fold::Equal(text, rest) ? 0 : -1;
  if (!fold::StartsWith(text, rest.substr(0, star))) return -1;
  text.remove_prefix(star);
  rest.remove_prefix(star + 1);
  while ((star = rest.find('*')) != std::string_view::npos) {
    if (!SkipPast(text, rest.substr(0, star))) return -1;
    rest.remove_prefix(star + 1);
  }
  return fold::EndsWith(text, rest) ? 0 : -1;
}

}  // namespace tolven
