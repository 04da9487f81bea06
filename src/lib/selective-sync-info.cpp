#include "lib/selective-sync-info.h"

#include <string>

#include "lib/black-list2.h"
#include "lib/file-op.h"
#include "lib/log.h"
#include "lib/white-list-cpp.h"

namespace tolven {

namespace {

void AddAll(const value_type_string_set& texts, const char* in_front,
            SelectiveSyncInfo::Set& rules) {
  for (const std::string& text : texts.set) rules.emplace(0, ustring(in_front + text));
}

// The rules of one file, freed at the end of the scope.
class LoadedFilter {
 public:
  explicit LoadedFilter(const ustring& path) {
    _filter_init(&filter_);
    ok_ = _filter_read(&filter_, path) == 0;
  }
  ~LoadedFilter() { _filter_destroy(&filter_); }
  LoadedFilter(const LoadedFilter&) = delete;
  LoadedFilter& operator=(const LoadedFilter&) = delete;

  bool ok() const { return ok_; }
  const Filter& get() const { return filter_; }

 private:
  Filter filter_;
  bool ok_ = false;
};

}  // namespace

void FilterInfo::set(std::uint64_t id, std::uint64_t number) {
  set(id, ustring(std::to_string(number)));
}

void FilterInfo::set(std::uint64_t id, const ustring& text) {
  sync_id = id;
  filter_desc = text;
}

int ConvertFilterFileToSelectiveSyncInfo(const Filter& filter, SelectiveSyncInfo& ss_info) {
  AddAll(filter.Common.black_dir_prefix, "", ss_info.black_path);
  AddAll(filter.Common.black_prefix, "", ss_info.black_common_prefix);
  AddAll(filter.File.black_name, "", ss_info.black_name);
  AddAll(filter.File.black_ext, ".", ss_info.black_suffix);
  AddAll(filter.File.black_prefix, "", ss_info.black_prefix);
  AddAll(filter.File.black_suffix, "", ss_info.black_suffix);
  AddAll(filter.File.black_glob, "", ss_info.black_glob);
  ss_info.black_size.set(0, filter.File.max_size);
  return 0;
}

int ConvertWhiteFilterFileToSelectiveSyncInfo(const WhiteList& list, SelectiveSyncInfo& ss_info) {
  AddAll(list.File.white_ext, "", ss_info.white_ext);
  return 0;
}

void traverse_convert(const ustring& profile_folder, SelectiveSyncInfo& ss_info) {
  DIR_HANDLE folder;
  FSOpenDir(profile_folder, 0, folder);
  DIR_ENTRY entry;
  while (FSReadDir(folder, entry) == 1) {
    if (entry.name == "." || entry.name == "..") continue;
    const ustring path = profile_folder + "/" + entry.name;
    Logger::LogMsg(Logger::L_DEBUG, "filter_utils_debug",
                   L"[DEBUG] filter-utils(%d): reading server profile '%s'\n", __LINE__, path);
    const LoadedFilter filter(path);
    if (filter.ok()) ConvertFilterFileToSelectiveSyncInfo(filter.get(), ss_info);
  }
  FSCloseDir(folder);
}

void GetSelectiveSyncInfo(BlackList2& black_list, const WhiteListCpp& white_list,
                          const ustring& profile_folder, SelectiveSyncInfo& ss_info) {
  const FilterGuard guard(black_list);
  ConvertFilterFileToSelectiveSyncInfo(*guard, ss_info);
  ConvertWhiteFilterFileToSelectiveSyncInfo(*white_list.GetWhiteList(), ss_info);
  traverse_convert(profile_folder, ss_info);
}

}  // namespace tolven
