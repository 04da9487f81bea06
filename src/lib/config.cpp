#include "lib/config.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <string>

#include "platform/files.h"

namespace tolven {
namespace {

constexpr std::size_t kMaxLine = 8191;

bool IsSpace(char c) { return (c >= 9 && c <= 13) || c == ' '; }

bool IsKeyCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
         c == '.' || c == '_';
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 32 || c == 127; }

template <class Test>
std::string_view TakeWhile(std::string_view& line, Test test) {
  std::size_t size = 0;
  while (size < line.size() && test(line[size])) ++size;
  const std::string_view taken = line.substr(0, size);
  line.remove_prefix(size);
  return taken;
}

// A quoted value, the quotes taken off. False when it has no end or holds a control character.
bool TakeQuoted(std::string_view& line, std::string_view& value) {
  const char quote = line.front();
  const std::size_t end = line.find(quote, 1);
  if (end == std::string_view::npos) return false;
  value = line.substr(1, end - 1);
  line.remove_prefix(end + 1);
  return std::none_of(value.begin(), value.end(), IsControl);
}

}  // namespace

int Config::read(const ustring& path) {
  if (path.empty()) return -1;
  platform::ScopedFile file;
  if (!platform::files().Open(path, platform::OpenMode::kRead, *file.receive()).ok()) return -1;
  std::string text;
  std::array<char, 65536> block;
  std::size_t got = 0;
  do {
    if (!platform::files().Read(file.get(), block.data(), block.size(), got).ok()) return -1;
    text.append(block.data(), got);
  } while (got > 0);
  return parse(text);
}

int Config::parse(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = text.substr(0, kMaxLine).find('\n');
    const std::size_t size =
        end == std::string_view::npos ? std::min(kMaxLine, text.size()) : end + 1;
    std::string_view line = text.substr(0, size);
    text.remove_prefix(size);
    if (!ParseLine(line.substr(0, line.find('\0')))) {
      store_.clear();
      return -1;
    }
  }
  return 0;
}

bool Config::ParseLine(std::string_view line) {
  TakeWhile(line, IsSpace);
  const std::string_view key = TakeWhile(line, IsKeyCharacter);
  if (line.empty() || line.front() == '\n' || line.front() == '#') return true;
  TakeWhile(line, IsSpace);
  if (line.empty() || line.front() != '=') return false;
  line.remove_prefix(1);
  TakeWhile(line, IsSpace);
  if (line.empty()) return false;

  std::string_view value;
  if (line.front() == '\'' || line.front() == '"') {
    if (!TakeQuoted(line, value)) return false;
  } else {
    value = TakeWhile(line, [](char c) { return c != ' ' && !IsControl(c); });
    if (value.empty()) return false;
  }
  TakeWhile(line, IsSpace);
  if (!line.empty() && line.front() != '#') return false;
  store_[ustring(key)] = value;
  return true;
}

int Config::write(const ustring& path) const {
  std::string text;
  for (const auto& [key, value] : store_) {
    const char quote = value.find('"') == ustring::npos ? '"' : '\'';
    if (value.find(quote) != ustring::npos ||
        std::any_of(value.view().begin(), value.view().end(), IsControl)) {
      return -1;
    }
    text.append(key.view()).append(" = ");
    text.append(1, quote).append(value.view()).append(1, quote).append("\n");
  }
  platform::ScopedFile file;
  if (!platform::files().Open(path, platform::OpenMode::kTruncate, *file.receive()).ok()) return -1;
  std::size_t written = 0;
  return platform::files().Write(file.get(), text.data(), text.size(), written).ok() ? 0 : -1;
}

const ustring& Config::operator[](const ustring& key) const {
  static const ustring kEmpty;
  const auto found = store_.find(key);
  return found == store_.end() ? kEmpty : found->second;
}

int Config::get_int(const ustring& key, int fallback) const {
  std::istringstream in((*this)[key].str());
  int value = 0;
  return in >> value ? value : fallback;
}

bool Config::get_bool(const ustring& key, bool fallback) const {
  const ustring& value = (*this)[key];
  return value == "true" || (value != "false" && fallback);
}

}  // namespace tolven
