#include "platform/long-path.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <initializer_list>

namespace tolven::platform {

namespace {

constexpr std::string_view kPrefix = "\\\\?\\";
constexpr std::string_view kSharePrefix = "\\\\?\\UNC\\";

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

std::string WithBackslashes(std::string_view text) {
  std::string result(text);
  std::replace(result.begin(), result.end(), '/', '\\');
  return result;
}

// `text` begins with `prefix`, whose letters may be in any case, whichever separators it uses.
bool HasPrefix(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  return std::equal(prefix.begin(), prefix.end(), text.begin(), [](char wanted, char c) {
    return wanted == '\\' ? IsSeparator(c)
                          : wanted == c || (IsLetter(c) && wanted == static_cast<char>(c & ~0x20));
  });
}

// A share is named by one of its kind of prefix, "//" included.
std::size_t SharePrefixLength(std::string_view path) {
  if (HasPrefix(path, kSharePrefix)) return kSharePrefix.size();
  return HasPrefix(path, "\\\\") && !HasPrefix(path, kPrefix) ? 2 : 0;
}

// Where the component ends that begins at or behind `start`.
std::size_t ComponentEnd(std::string_view path, std::size_t start) {
  while (start < path.size() && IsSeparator(path[start])) ++start;
  while (start < path.size() && !IsSeparator(path[start])) ++start;
  return start;
}

std::string_view NextComponent(std::string_view path, std::size_t& place) {
  const std::size_t end = ComponentEnd(path, place);
  std::size_t start = place;
  while (start < end && IsSeparator(path[start])) ++start;
  place = end;
  return path.substr(start, end - start);
}

constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestPath = 32767;

bool IsOneOf(std::string_view text, std::initializer_list<std::string_view> list) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

// What stands in front of the first dot names a device, whatever comes behind it.
bool IsDeviceName(std::string_view name) {
  std::string stem(name.substr(0, name.find('.')));
  stem.erase(stem.find_last_not_of(' ') + 1);
  for (char& c : stem) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c & ~0x20);
  }
  if (IsOneOf(stem, {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"})) return true;
  if (!stem.starts_with("COM") && !stem.starts_with("LPT")) return false;
  const std::string_view number = std::string_view(stem).substr(3);
  if (number.size() == 1) return number[0] >= '0' && number[0] <= '9';
  return IsOneOf(number, {"\xC2\xB9", "\xC2\xB2", "\xC2\xB3"});  // superscript digits
}

std::size_t CountUnits(std::string_view text) {
  std::size_t units = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0) != 0x80) units += byte >= 0xF0 ? 2 : 1;
  }
  return units;
}

// Units compare as the file system does it: one by one, in upper case.
char16_t Upper(char16_t unit) {
  const UChar32 upper = u_toupper(unit);
  return upper <= 0xFFFF ? static_cast<char16_t>(upper) : unit;
}

}  // namespace

std::size_t WindowsRootLength(std::string_view path) {
  std::size_t end = 0;
  if (const std::size_t share = SharePrefixLength(path); share > 0) {
    end = ComponentEnd(path, ComponentEnd(path, share));
  } else {
    if (HasPrefix(path, kPrefix)) end = kPrefix.size();
    if (path.size() < end + 2 || !IsLetter(path[end]) || path[end + 1] != ':') return end;
    end += 2;
  }
  while (end < path.size() && IsSeparator(path[end])) ++end;
  return end;
}

bool IsWindowsName(std::string_view name) {
  constexpr std::string_view kReserved = "<>:\"/\\|?*";
  if (name.empty() || name.back() == '.' || name.back() == ' ') return false;
  const bool plain = std::none_of(name.begin(), name.end(), [&](char c) {
    return static_cast<unsigned char>(c) < 0x20 || kReserved.find(c) != std::string_view::npos;
  });
  return plain && !IsDeviceName(name) && CountUnits(name) <= kLongestName;
}

bool IsWindowsPath(std::string_view path) {
  if (CountUnits(path) + kSharePrefix.size() > kLongestPath) return false;
  std::size_t place = WindowsRootLength(path);
  for (;;) {
    const std::string_view component = NextComponent(path, place);
    if (component.empty()) return true;
    if (!IsWindowsName(component)) return false;
  }
}

ustring get_extened_path(const ustring& path) {
  const std::string_view text = path.view();
  std::size_t place = 0;
  std::string result(kPrefix);
  if (const std::size_t share = SharePrefixLength(text); share > 0) {
    result = kSharePrefix;
    place = share;
  } else if (HasPrefix(text, kPrefix)) {
    place = kPrefix.size();
  }
  const std::size_t begin = result.size();
  for (;;) {
    const std::string_view component = NextComponent(text, place);
    if (component.empty()) break;
    if (result.size() > begin) result += '\\';
    result += component;
  }
  if (result.size() == begin + 2 && result.back() == ':') result += '\\';
  return ustring(result);
}

ustring PlainPath(const ustring& extended) {
  const std::string_view text = extended.view();
  if (HasPrefix(text, kSharePrefix)) {
    return ustring("\\\\" + std::string(text.substr(kSharePrefix.size())));
  }
  return HasPrefix(text, kPrefix) ? ustring(text.substr(kPrefix.size())) : extended;
}

bool DifferOnlyInCase(const ustring& a, const ustring& b) {
  const ustring left = PlainPath(get_extened_path(a)), right = PlainPath(get_extened_path(b));
  if (left == right) return false;
  const std::u16string_view one(left.c_str()), other(right.c_str());
  return !one.empty() && std::equal(one.begin(), one.end(), other.begin(), other.end(),
                                    [](char16_t x, char16_t y) { return Upper(x) == Upper(y); });
}

bool SpellPath(const ustring& path, const NameLookUp& name_on_disk, ustring& real) {
  const std::string text = PlainPath(get_extened_path(path)).str();
  std::size_t place = WindowsRootLength(text);
  std::string result = WithBackslashes(text.substr(0, place));
  for (;;) {
    const std::string_view component = NextComponent(text, place);
    if (component.empty()) break;
    if (!result.empty() && result.back() != '\\') result += '\\';
    std::string name;
    if (!name_on_disk(result + std::string(component), name)) return false;
    result += name;
  }
  real = ustring(result);
  return true;
}

}  // namespace tolven::platform
