// The tests of a filter. They run for every path that the engine touches, so they work on views of
// the path and never allocate.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "filter/extension.h"
#include "filter/filter.h"
#include "filter/fold.h"
#include "filter/glob.h"

namespace tolven {

namespace {

constexpr std::size_t kFolderPathLimit = 4096;
constexpr std::size_t kNameLimit = 512;

enum Section : int { kCommon = 0x100, kFile = 0x200, kDirectory = 0x300, kEA = 0x400 };
enum Rule : int {
  kChar = 2,
  kPrefix = 3,
  kSuffix = 4,
  kName = 5,
  kExt = 6,
  kGlob = 7,
  kDirPrefix = 8,
  kMaxLength = 9,
  kMaxPath = 10,
  kMaxSize = 11,
};

int Code(Section section, Rule rule) {
  return -(static_cast<int>(section) + static_cast<int>(rule));
}

template <class Predicate>
bool Any(const value_type_string_set& values, Predicate hits) {
  return std::any_of(values.set.begin(), values.set.end(), hits);
}
bool HasEqual(const value_type_string_set& values, std::string_view text) {
  return Any(values, [text](const std::string& entry) { return fold::Equal(entry, text); });
}
bool HasPrefixOf(const value_type_string_set& values, std::string_view text) {
  return Any(values, [text](const std::string& entry) { return fold::StartsWith(text, entry); });
}
bool HasSuffixOf(const value_type_string_set& values, std::string_view text) {
  return Any(values, [text](const std::string& entry) { return fold::EndsWith(text, entry); });
}
bool HasGlobOf(const value_type_string_set& values, const char* text) {
  return Any(values,
             [text](const std::string& entry) { return _filter_glob(text, entry.c_str()) == 0; });
}
bool HasCharOf(const value_type_string& bytes, std::string_view text) {
  return std::any_of(bytes.str.begin(), bytes.str.end(),
                     [text](char c) { return text.find(c) != std::string_view::npos; });
}

bool IsAtOrBelow(std::string_view path, std::string_view folder) {
  return fold::StartsWith(path, folder) &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

int _match_common_section_rules(const CommonSection& common, std::string_view name) {
  if (common.max_length != 0 && name.size() > common.max_length) return Code(kCommon, kMaxLength);
  if (HasCharOf(common.black_char, name)) return Code(kCommon, kChar);
  if (HasEqual(common.black_name, name)) return Code(kCommon, kName);
  if (HasPrefixOf(common.black_prefix, name)) return Code(kCommon, kPrefix);
  if (HasSuffixOf(common.black_suffix, name)) return Code(kCommon, kSuffix);
  return 0;
}

int MatchFileRules(const FileSection& file, const char* name_text) {
  const std::string_view name = name_text;
  if (HasCharOf(file.black_char, name)) return Code(kFile, kChar);
  if (HasPrefixOf(file.black_prefix, name)) return Code(kFile, kPrefix);
  if (HasSuffixOf(file.black_suffix, name)) return Code(kFile, kSuffix);
  if (HasGlobOf(file.black_glob, name_text)) return Code(kFile, kGlob);
  if (HasEqual(file.black_name, name)) return Code(kFile, kName);
  if (HasEqual(file.black_ext, ExtensionOf(name))) return Code(kFile, kExt);
  return 0;
}

int MatchDirectoryRules(const DirectorySection& directory, std::string_view name) {
  if (HasCharOf(directory.black_char, name)) return Code(kDirectory, kChar);
  if (HasEqual(directory.black_name, name)) return Code(kDirectory, kName);
  if (HasPrefixOf(directory.black_prefix, name)) return Code(kDirectory, kPrefix);
  if (HasSuffixOf(directory.black_suffix, name)) return Code(kDirectory, kSuffix);
  return 0;
}

int MatchFolderPath(const Filter& filter, std::string_view folder) {
  while (!folder.empty()) {
    const std::size_t end = std::min(folder.find('/'), folder.size());
    const std::string_view component = folder.substr(0, std::min(end, kNameLimit - 1));
    folder.remove_prefix(std::min(end + 1, folder.size()));
    if (component.empty()) continue;
    int result = _match_common_section_rules(filter.Common, component);
    if (result == 0) result = MatchDirectoryRules(filter.Directory, component);
    if (result != 0) return result;
  }
  return 0;
}

}  // namespace

int _filter_test_path(const Filter* filter, bool is_dir, const char* path) {
  const std::string_view whole = path;
  if (Any(filter->Common.black_dir_prefix,
          [whole](const std::string& entry) { return IsAtOrBelow(whole, entry); })) {
    return Code(kCommon, kDirPrefix);
  }
  if (is_dir) return MatchFolderPath(*filter, whole);

  if (!whole.starts_with('/')) return -1;
  const std::size_t cut = whole.rfind('/') + 1;
  const std::string_view folder = whole.substr(0, cut), name = whole.substr(cut);
  // An extension is shorter than its name, so that its own limit is kept as well.
  if (folder.size() >= kFolderPathLimit || name.size() >= kNameLimit) return -1;
  int result = _match_common_section_rules(filter->Common, name);
  if (result == 0) result = MatchFileRules(filter->File, path + cut);
  return result != 0 ? result : MatchFolderPath(*filter, folder);
}

int _filter_test_file_size(const Filter* filter, std::uint64_t size) {
  const std::uint64_t limit = filter->File.max_size;
  return limit != 0 && size > limit ? Code(kFile, kMaxSize) : 0;
}

int _filter_test_full_path_size(const Filter* filter, std::uint64_t size) {
  const std::uint64_t limit = filter->Common.max_path;
  return limit != 0 && size > limit ? Code(kCommon, kMaxPath) : 0;
}

int _filter_test_ea(const Filter* filter, const char* name) {
  return HasEqual(filter->EA.black_ea_name, name) ? Code(kEA, kName) : 0;
}

}  // namespace tolven
