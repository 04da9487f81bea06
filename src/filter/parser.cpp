#include "filter/parser.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

#include "filter/scan.h"
#include "platform/files.h"

namespace tolven {

namespace {

constexpr std::size_t kLongestLine = 10297;
constexpr std::size_t kLongestName = 32;
constexpr std::size_t kReadSize = 16384;

template <class Entry>
const Entry* FindByName(const std::vector<Entry>& entries, std::string_view name) {
  const auto found = std::find_if(entries.begin(), entries.end(),
                                  [name](const Entry& entry) { return entry.name == name; });
  return found == entries.end() ? nullptr : &*found;
}

// The length of the first line with its line end; 0 when its end has not been read yet.
std::size_t LineLength(std::string_view text, bool at_end) {
  const std::size_t size = std::min(text.size(), kLongestLine);
  const std::size_t end = text.substr(0, size).find('\n');
  if (end != std::string_view::npos) return end + 1;
  return at_end || size == kLongestLine ? size : 0;
}

std::string_view WithoutEnd(std::string_view line) {
  if (line.ends_with('\n')) {
    line.remove_suffix(1);
    if (line.ends_with('\r')) line.remove_suffix(1);
  }
  return line.substr(0, line.find('\0'));
}

parser_error ExpectLineEnd(std::string_view rest) {
  scan::SkipSpace(rest);
  return scan::AtLineEnd(rest) ? parser_error::NO_ERROR : parser_error::LINE_NOT_ENDED;
}

}  // namespace

parse_result Parser::ParseFile(const ustring& path) {
  platform::Files& files = platform::files();
  platform::ScopedFile file;
  if (!files.Open(path, platform::OpenMode::kRead, *file.receive()).ok()) {
    return Finish(parser_error::INTERNAL_ERROR);
  }
  std::string buffer;
  std::size_t got = 0;
  do {
    const std::size_t kept = buffer.size();
    buffer.resize(kept + kReadSize);
    if (!files.Read(file.get(), buffer.data() + kept, kReadSize, got).ok()) {
      return Finish(parser_error::INTERNAL_ERROR);
    }
    buffer.resize(kept + got);
    std::string_view rest = buffer;
    const parser_error error = ParseLines(rest, got == 0);
    if (error != parser_error::NO_ERROR) return Finish(error);
    buffer.erase(0, buffer.size() - rest.size());
  } while (got != 0);
  return Finish(parser_error::NO_ERROR);
}

parse_result Parser::ParseText(std::string_view text) { return Finish(ParseLines(text, true)); }

parser_error Parser::ParseLines(std::string_view& text, bool at_end) {
  while (const std::size_t length = LineLength(text, at_end)) {
    const std::string_view line = WithoutEnd(text.substr(0, length));
    text.remove_prefix(length);
    const parser_error error = ParseLine(line);
    if (error != parser_error::NO_ERROR) return error;
  }
  return parser_error::NO_ERROR;
}

parser_error Parser::ParseLine(std::string_view line) {
  ++line_count;
  scan::SkipSpace(line);
  if (scan::AtLineEnd(line)) return parser_error::NO_ERROR;
  const Expect kind = line.front() == '[' ? kSection : line.front() == '"' ? kValue : kKey;
  if ((next_expect & kind) == 0) return parser_error::LINE_NOT_EXPECTED;
  if (kind == kSection) return ParseSection(line);
  return kind == kValue ? ParseSet(line) : ParseKey(line);
}

parser_error Parser::ParseSection(std::string_view rest) {
  rest.remove_prefix(1);
  const std::string_view name = scan::TakeName(rest);
  if (name.size() > kLongestName) return parser_error::SECTION_TOO_LONG;
  if (rest.empty()) return parser_error::SECTION_MISSING_RIGHT_BRACKET;
  if (rest.front() != ']') return parser_error::SECTION_ILLEGAL_CHARACTER;
  if (name.empty()) return parser_error::SECTION_MISSING_SECTION;
  const parser_error error = ExpectLineEnd(rest.substr(1));
  if (error != parser_error::NO_ERROR) return error;
  section_schema = FindByName(parser_schema.sections, name);
  if (section_schema == nullptr) return parser_error::SECTION_UNDEFINED_SECTION;
  next_expect = kSection | kKey;
  return parser_error::NO_ERROR;
}

parser_error Parser::ParseKey(std::string_view rest) {
  const std::string_view name = scan::TakeName(rest);
  if (name.size() > kLongestName) return parser_error::KEY_TOO_LONG;
  scan::SkipSpace(rest);
  if (rest.empty() || rest.front() != '=') return parser_error::KEY_ILLEGAL_CHARACTER;
  if (name.empty()) return parser_error::KEY_MISSING_KEY;
  rest.remove_prefix(1);
  scan::SkipSpace(rest);
  key_schema = FindByName(section_schema->keys, name);
  if (key_schema == nullptr) {
    std::fprintf(stdout, "warning: unknown key (%.*s)\n", static_cast<int>(name.size()),
                 name.data());
    ++unknown_key_count;
    return parser_error::NO_ERROR;
  }
  switch (key_schema->value_type()) {
    case string_set_type:
      return ParseSet(rest);
    case string_type:
      return ParseString(rest);
    default:
      return ParseInteger(rest);
  }
}

parser_error Parser::ParseInteger(std::string_view rest) {
  std::int64_t value = 0;
  const parser_error error = scan::TakeInteger(rest, value);
  if (error != parser_error::NO_ERROR) return error;
  if (std::int32_t* const* const field = std::get_if<std::int32_t*>(&key_schema->field)) {
    using Limits = std::numeric_limits<std::int32_t>;
    **field =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(value, Limits::min(), Limits::max()));
  } else {
    *std::get<std::uint64_t*>(key_schema->field) = static_cast<std::uint64_t>(value);
  }
  return ExpectLineEnd(rest);
}

parser_error Parser::ParseString(std::string_view rest) {
  std::string value;
  const parser_error error = scan::TakeString(rest, value);
  if (error != parser_error::NO_ERROR) return error;
  _vt_string_assign(std::get<value_type_string*>(key_schema->field), value);
  return ExpectLineEnd(rest);
}

parser_error Parser::ParseSet(std::string_view rest) {
  std::string value;
  while (true) {
    const parser_error error = scan::TakeString(rest, value);
    if (error != parser_error::NO_ERROR) return error;
    _vt_string_set_insert(std::get<value_type_string_set*>(key_schema->field), value);
    scan::SkipSpace(rest);
    next_expect = kSection | kKey;
    if (scan::AtLineEnd(rest)) return parser_error::NO_ERROR;
    if (rest.front() != ',') return parser_error::VALUE_SET_MISSING_SEPARATER;
    rest.remove_prefix(1);
    scan::SkipSpace(rest);
    next_expect = kValue;
    if (scan::AtLineEnd(rest)) return parser_error::NO_ERROR;
  }
}

parse_result Parser::Finish(parser_error error) const {
  if (error != parser_error::NO_ERROR) {
    std::fprintf(stderr, "parser: %s at line %d\n", parser_error_name(static_cast<int>(error)),
                 line_count);
    return PARSE_ERROR;
  }
  return unknown_key_count == 0 ? PARSE_DONE : PARSE_PARTIAL;
}

bool IsAccepted(const schema_parser& schema, const VersionSection& version, parse_result result) {
  return result == PARSE_DONE ||
         (result == PARSE_PARTIAL && version.major == schema.major && version.minor > schema.minor);
}

}  // namespace tolven
