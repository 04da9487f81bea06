#include "lib/config.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>

#include "platform/whole-file.h"

namespace tolven {

namespace {

constexpr std::size_t kLongestLine = 8191;

bool IsSpace(char c) { return (c >= 9 && c <= 13) || c == ' '; }
bool IsControl(char c) { return static_cast<unsigned char>(c) < 32 || c == 127; }
bool IsQuote(char c) { return c == '\'' || c == '"'; }

bool IsKeyCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
         c == '.' || c == '_';
}

std::string_view SkipSpace(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  return text;
}

// Cuts the characters that satisfy `belongs` off the front of `text`.
template <class Predicate>
std::string_view TakeWhile(std::string_view& text, Predicate belongs) {
  std::size_t end = 0;
  while (end < text.size() && belongs(text[end])) ++end;
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(end);
  return taken;
}

// Cuts a value off the front of `text`, which is not empty; nothing when it is malformed.
std::optional<std::string_view> TakeValue(std::string_view& text) {
  const char quote = text.front();
  if (!IsQuote(quote)) {
    return TakeWhile(text, [](char c) { return c != ' ' && !IsControl(c); });
  }
  text.remove_prefix(1);
  const std::string_view value =
      TakeWhile(text, [quote](char c) { return c != quote && !IsControl(c); });
  if (text.empty() || text.front() != quote) return std::nullopt;
  text.remove_prefix(1);
  return value;
}

// One line as a reader with a bounded buffer gets it: up to and with the line end.
std::string_view TakeLine(std::string_view& text) {
  std::size_t size = std::min(text.size(), kLongestLine);
  const std::size_t end = text.substr(0, size).find('\n');
  if (end != std::string_view::npos) size = end + 1;
  const std::string_view line = text.substr(0, size);
  text.remove_prefix(size);
  return line.substr(0, line.find('\0'));
}

// How `value` is written, or nothing when it has no form.
std::optional<std::string> Quoted(std::string_view value) {
  bool blank = value.empty();
  for (const char c : value) {
    if (IsControl(c)) return std::nullopt;
    blank = blank || c == ' ';
  }
  if (!blank && !IsQuote(value.front())) return std::string(value);
  for (const char quote : {'"', '\''}) {
    if (value.find(quote) == std::string_view::npos) {
      return std::string(1, quote).append(value).append(1, quote);
    }
  }
  return std::nullopt;
}

}  // namespace

int Config::read(const ustring& path) {
  std::string text;
  if (path.empty() || !platform::ReadWholeFile(path, text).ok()) return -1;
  return parse(text);
}

int Config::parse(std::string_view text) {
  while (!text.empty()) {
    if (ParseLine(TakeLine(text)) < 0) {
      store.clear();
      return -1;
    }
  }
  return 0;
}

int Config::ParseLine(std::string_view line) {
  line = SkipSpace(line);
  const std::string_view key = TakeWhile(line, IsKeyCharacter);
  if (line.empty() || line.front() == '\n' || line.front() == '#') return 0;
  line = SkipSpace(line);
  if (line.empty() || line.front() != '=') return -1;
  line = SkipSpace(line.substr(1));
  if (line.empty()) return -1;
  const std::optional<std::string_view> value = TakeValue(line);
  if (!value) return -1;
  line = SkipSpace(line);
  if (!line.empty() && line.front() != '#') return -1;
  store[ustring(key)] = *value;
  return 0;
}

int Config::write(const ustring& path) const {
  std::string text;
  for (const auto& [key, value] : store) {
    std::string_view rest = key.view();
    TakeWhile(rest, IsKeyCharacter);
    const std::optional<std::string> quoted = Quoted(value.view());
    if (!rest.empty() || !quoted) return -1;
    text.append(key.view()).append("=").append(*quoted).append("\n");
  }
  return !path.empty() && platform::ReplaceWholeFile(path, text).ok() ? 0 : -1;
}

const ustring& Config::operator[](const ustring& key) const {
  static const ustring empty;
  const auto found = store.find(key);
  return found == store.end() ? empty : found->second;
}

int Config::get_int(const ustring& key, int fallback) const {
  const auto found = store.find(key);
  int value = 0;
  return found != store.end() && ParseInt(found->second.view(), value) ? value : fallback;
}

bool Config::get_bool(const ustring& key, bool fallback) const {
  const auto found = store.find(key);
  return found == store.end() ? fallback : found->second == "true";
}

bool Config::ParseInt(std::string_view text, int& value) {
  text = SkipSpace(text);
  if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
  return std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc{};
}

}  // namespace tolven
