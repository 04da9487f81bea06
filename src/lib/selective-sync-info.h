// What keeps a path out of a session, folded from all its filter files into a form that can be
// stored and compared with an older one.
#pragma once

#include <cstdint>
#include <set>
#include <utility>

#include "filter/filter.h"
#include "filter/white-list.h"
#include "ustring/ustring.h"

namespace tolven {

class BlackList2;
class WhiteListCpp;

// One rule. Two are the same when their texts are.
struct FilterInfo {
  FilterInfo() = default;
  FilterInfo(std::uint64_t id, ustring text) : sync_id(id), filter_desc(std::move(text)) {}
  FilterInfo(std::uint64_t id, std::uint64_t number) { set(id, number); }

  void clear() { *this = FilterInfo(); }
  void set(std::uint64_t id, std::uint64_t number);
  void set(std::uint64_t id, const ustring& text);

  std::uint64_t sync_id = 0;
  ustring filter_desc;
};
inline bool operator<(const FilterInfo& a, const FilterInfo& b) {
  return a.filter_desc < b.filter_desc;
}
inline bool operator==(const FilterInfo& a, const FilterInfo& b) {
  return a.filter_desc == b.filter_desc;
}
inline bool operator>(const FilterInfo& a, const FilterInfo& b) { return b < a; }

struct SelectiveSyncInfo {
  using Set = std::set<FilterInfo>;

  Set black_path;           // folders, from the session's root
  Set black_name;           // of files
  Set black_suffix;         // of names; an extension stands here with its dot
  Set black_prefix;         // of names
  Set black_common_prefix;  // of any component of the path
  Set black_glob;           // for names
  Set white_ext;            // extensions that may pass; "*" stands for all
  FilterInfo black_size;    // the largest size in decimal; empty or "0": none
};

// Add the rules of one file. Return 0.
int ConvertFilterFileToSelectiveSyncInfo(const Filter& filter, SelectiveSyncInfo& ss_info);
int ConvertWhiteFilterFileToSelectiveSyncInfo(const WhiteList& list, SelectiveSyncInfo& ss_info);
// The same for every filter file in a folder. A folder that cannot be read counts as empty, a file
// that cannot be parsed is skipped.
void traverse_convert(const ustring& profile_folder, SelectiveSyncInfo& ss_info);
// All three. `black_list` stays locked for the whole call.
void GetSelectiveSyncInfo(BlackList2& black_list, const WhiteListCpp& white_list,
                          const ustring& profile_folder, SelectiveSyncInfo& ss_info);

}  // namespace tolven
