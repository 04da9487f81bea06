// The filter: a black list of names, paths, sizes and extended attributes.
//
// Its file form is described in filter/parser.h. Sections, keys and fields:
//
//   [Version]    major, minor
//   [Common]     black_char, black_prefix, black_suffix, black_name, black_dir_prefix, max_length,
//                max_path; and black_path_prefix_selective_sync, which adds to black_dir_prefix
//   [File]       black_char, black_prefix, black_suffix, black_glob, black_ext, black_name,
//                max_size; and black_ext_selective_sync, black_name_selective_sync,
//                max_size_selective_sync, which fill the fields of their plain twins
//   [Directory]  black_char, black_name, black_prefix, black_suffix
//   [EA]         black_ea_name
//
// Common rules hold for every component of a path, File rules for the name of a file, Directory
// rules for folders. Sets ignore the case of ASCII letters. A number that is 0 is no limit.
//
// Structures have no lock; reading one from several threads is fine while nobody writes it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "filter/value-types.h"
#include "ustring/ustring.h"

namespace tolven {

struct CommonSection {
  value_type_string black_char;  // bytes, none of which may occur
  value_type_string_set black_prefix, black_suffix, black_name;
  value_type_string_set black_dir_prefix;  // paths from the root, without a "/" at the end
  std::uint64_t max_length = 0;            // of a component, in bytes
  std::uint64_t max_path = 0;              // of a full path, in the caller's unit
};

struct FileSection {
  value_type_string black_char;
  value_type_string_set black_prefix, black_suffix, black_glob;
  value_type_string_set black_ext;  // without the dot
  value_type_string_set black_name;
  std::uint64_t max_size = 0;  // bytes
};

struct DirectorySection {
  value_type_string black_char;
  value_type_string_set black_name, black_prefix, black_suffix;
};

struct EASection {
  value_type_string_set black_ea_name;
};

struct Filter {
  VersionSection Version;
  CommonSection Common;
  FileSection File;
  DirectorySection Directory;
  EASection EA;
};

void _filter_init(Filter* filter);
void _filter_copy(Filter* to, const Filter* from);
void _filter_destroy(Filter* filter);

// Adds the content of a file: 0, or -1 and an empty filter when the file cannot be read, is
// malformed, or holds an unknown key although its version is 1.0 or older.
int _filter_read(Filter* filter, const ustring& path);
// The same for text in memory.
int _filter_parse(Filter* filter, std::string_view text);

// Replaces the file; readers see the old or the new one. -1 when it cannot be written, or when the
// filter holds a text that has no form in a file: an empty one, or one that is too long.
int _filter_write(const Filter* filter, const ustring& path);
// The same text to a stream.
void _filter_print(const Filter* filter, std::FILE* stream);

// The tests below allocate nothing. 0 passes; a rule that refuses gives its code, the negated sum
// of the section (0x100 Common, 0x200 File, 0x300 Directory, 0x400 EA) and the rule:
//
//   2 black_char    3 black_prefix  4 black_suffix  5 black_name  6 black_ext  7 black_glob
//   8 black_dir_prefix  9 max_length  10 max_path  11 max_size   (black_ea_name counts as 5)

// `path` begins at the sync root, with "/". -1 for the path of a file that does not begin so, whose
// folder has 4,096 bytes or more, or whose name or extension has 512 bytes or more.
int _filter_test_path(const Filter* filter, bool is_dir, const char* path);
int _filter_test_file_size(const Filter* filter, std::uint64_t size);
int _filter_test_full_path_size(const Filter* filter, std::uint64_t size);
int _filter_test_ea(const Filter* filter, const char* name);

}  // namespace tolven
