// Profiles given as JSON: they become filter files like all others.
#include <json/json.h>

#include <exception>
#include <memory>
#include <string>

#include "filter/filter.h"
#include "lib/file-op.h"
#include "lib/log.h"
#include "lib/profile-manager.h"

namespace tolven {

namespace {

constexpr const char* kCategory = "sync_task_debug";

bool ParseJson(const std::string& text, Json::Value& json) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  try {
    return reader->parse(text.data(), text.data() + text.size(), &json, nullptr) && json.isObject();
  } catch (const std::exception&) {
    return false;  // nested too deeply
  }
}

// Replaces a set by the strings of an array; a member that is not there changes nothing.
bool SetFilterProperty(const Json::Value& json, const char* member, value_type_string_set& set) {
  if (!json.isMember(member)) return true;
  const Json::Value& values = json[member];
  if (!values.isArray()) return false;
  set.set.clear();
  for (const Json::Value& value : values) {
    if (!value.isString()) return false;
    _vt_string_set_insert(&set, value.asString());
  }
  return true;
}

bool SetMaxSize(const Json::Value& json, std::uint64_t& size) {
  constexpr const char* kMember = "filtered_max_upload_size";
  if (!json.isMember(kMember)) return true;
  if (!json[kMember].isConvertibleTo(Json::uintValue)) return false;
  size = json[kMember].asUInt();
  return true;
}

}  // namespace

int ProfileManager::AddProfileByContext(std::uint64_t profile_id, const ustring& name,
                                        const ustring& text,
                                        const std::vector<std::uint64_t>& user_ids) {
  Json::Value json;
  if (!ParseJson(text.str(), json)) return -1;
  ustring path;
  if (_tmp_file_path.empty() || FSMktemp(_tmp_file_path, path) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] profile-mgr(%d): Profile update failed: tmpfile create fail..\n",
                   __LINE__);
    return -1;
  }
  _temp_file_list.push_back(path);
  if (JsonValueToFilterFile(json, path) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] profile-mgr(%d): fail JsonValueToFilterFile\n", __LINE__);
    return -1;
  }
  return AddProfileByFile(profile_id, name, path, user_ids);
}

int ProfileManager::JsonValueToFilterFile(const Json::Value& json, const ustring& path) {
  Filter filter;
  if (!json.isObject() ||
      !SetFilterProperty(json, "black_path_prefix_selective_sync",
                         filter.Common.black_dir_prefix) ||
      !SetFilterProperty(json, "filtered_extensions", filter.File.black_ext) ||
      !SetFilterProperty(json, "filtered_names", filter.File.black_name) ||
      !SetMaxSize(json, filter.File.max_size)) {
    return -1;
  }
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] profile-mgr(%d): ======= filePath '%s' created as profile. =====\n",
                 __LINE__, path);
  if (_filter_write(&filter, path) == 0) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] profile-mgr(%d): Failed to write black filter list to file '%s' \n",
                 __LINE__, path);
  return -1;
}

}  // namespace tolven
