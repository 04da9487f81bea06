#include "ctl/rule-editor.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

namespace tolven::ctl {
namespace {

constexpr std::string_view kUnits = "BKMGT";
// What a filter file can hold.
constexpr std::size_t kLongestText = 4096;

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualNoCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Lower(x) == Lower(y); });
}

bool Contains(const value_type_string_set& values, const std::string& text) {
  return std::any_of(values.set.begin(), values.set.end(),
                     [&text](const auto& value) { return EqualNoCase(value, text); });
}

// The form that stands in the file; false with one line in `error` for what can match nothing.
bool Normalise(const Rule& rule, std::string& text, std::string& error) {
  text = rule.value;
  const bool is_path = rule.kind == "path";
  if (rule.kind == "extension" && text.starts_with('.')) text.erase(0, 1);
  while (is_path && text.ends_with('/')) text.pop_back();
  if (text.empty()) {
    error = "a rule needs a text; a path other than \"/\"";
  } else if (text.size() > kLongestText) {
    error = "a rule has at most 4096 bytes";
  } else if (is_path && !text.starts_with('/')) {
    error = "a path begins at the synced folder, as in /Videos";
  } else if (!is_path && text.find('/') != std::string::npos) {
    error = "a name or extension has no \"/\"";
  } else if (rule.kind == "extension" && text.find('.') != std::string::npos) {
    error = "an extension is what follows the last dot";
  }
  return error.empty();
}

}  // namespace

bool RuleEditor::Load(std::string& error) {
  filter_ = Filter();
  has_changed_ = has_loosened_ = false;
  if (_filter_read(&filter_, path_) == 0) return true;
  error = "cannot read the rules in " + path_.str();
  return false;
}

value_type_string_set* RuleEditor::SetOf(const std::string& kind) {
  if (kind == "name") return &filter_.File.black_name;
  if (kind == "extension") return &filter_.File.black_ext;
  return kind == "path" ? &filter_.Common.black_dir_prefix : nullptr;
}

bool RuleEditor::Add(const Rule& rule, std::string& error) {
  std::uint64_t size = 0;
  if (rule.kind == "size") {
    if (ReadSize(rule.value, size)) return ChangeSize(rule, size, error);
    error = "'" + rule.value + "' is no size such as 100M";
    return false;
  }
  value_type_string_set* const set = SetOf(rule.kind);
  std::string text;
  if (set == nullptr) error = "a rule is a name, an extension, a path or a size";
  if (set == nullptr || !Normalise(rule, text, error)) return false;
  if (Contains(*set, text)) return true;
  _vt_string_set_insert(set, text);
  has_changed_ = true;
  return true;
}

bool RuleEditor::Remove(const Rule& rule, std::string& error) {
  if (rule.kind == "size") return ChangeSize(rule, 0, error);
  value_type_string_set* const set = SetOf(rule.kind);
  std::string text;
  if (set == nullptr) error = "a rule is a name, an extension, a path or a size";
  if (set == nullptr || !Normalise(rule, text, error)) return false;
  if (!Contains(*set, text)) {
    error = "there is no rule for the " + rule.kind + " '" + text + "'";
    return false;
  }
  _vt_string_set_remove(set, text);
  has_changed_ = has_loosened_ = true;
  return true;
}

bool RuleEditor::ChangeSize(const Rule& rule, std::uint64_t size, std::string& error) {
  std::uint64_t& limit = filter_.File.max_size;
  std::uint64_t named = 0;
  const bool names_other =
      size == 0 && !rule.value.empty() && (!ReadSize(rule.value, named) || named != limit);
  if (size == 0 && (limit == 0 || names_other)) {
    error = "there is no such rule for a size";
    return false;
  }
  has_loosened_ = has_loosened_ || (limit != 0 && (size == 0 || size > limit));
  has_changed_ = has_changed_ || size != limit;
  limit = size;
  return true;
}

bool RuleEditor::Save(std::string& error) const {
  Filter filter = filter_;
  if (filter.Version.major == 0) filter.Version.major = 1;
  if (_filter_write(&filter, path_) == 0) return true;
  error = "cannot write the rules to " + path_.str();
  return false;
}

std::vector<Rule> RuleEditor::List() const {
  std::vector<Rule> rules;
  const auto add = [&rules](const char* kind, const value_type_string_set& values) {
    for (const auto& value : values.set) rules.push_back({kind, std::string(value)});
  };
  add("name", filter_.File.black_name);
  add("extension", filter_.File.black_ext);
  add("path", filter_.Common.black_dir_prefix);
  if (filter_.File.max_size != 0) rules.push_back({"size", std::to_string(filter_.File.max_size)});
  return rules;
}

bool ReadSize(const std::string& text, std::uint64_t& bytes) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  const std::string_view unit(read.ptr, static_cast<std::size_t>(end - read.ptr));
  if (read.ec != std::errc() || unit.size() > 1 || !(number > 0)) return false;
  const std::size_t power = unit.empty() ? 0 : kUnits.find(static_cast<char>(unit[0] & ~0x20));
  if (power == std::string_view::npos) return false;
  const double value = std::round(std::ldexp(number, static_cast<int>(power) * 10));
  if (value < 1 || value > 9e18) return false;
  bytes = static_cast<std::uint64_t>(value);
  return true;
}

std::string SizeText(std::uint64_t bytes) {
  constexpr const char* kNames[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 1024 && unit + 1 < std::size(kNames)) {
    value /= 1024;
    ++unit;
  }
  return unit == 0 ? fmt::format("{} B", bytes) : fmt::format("{:.1f} {}", value, kNames[unit]);
}

}  // namespace tolven::ctl
