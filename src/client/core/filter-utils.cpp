#include "client/core/filter-utils.h"

#include <string>
#include <vector>

#include "client/core/event-generator.h"
#include "client/event-db-connection.h"
#include "client/event-manager.h"
#include "client/filter-db.h"
#include "lib/log.h"

namespace tolven {

using event_db::Sql;

namespace {

constexpr char kCategory[] = "filter_utils_debug";

// A rule as the literal part of a LIKE pattern, and what the statement has to say of it. Taken as
// wildcards, "%" and "_" would keep back what no rule refuses.
struct LikeLiteral {
  explicit LikeLiteral(const ustring& rule) {
    for (const char c : rule.view()) {
      if (c == '%' || c == '_' || c == '\\') {
        text += '\\';
        escape = " ESCAPE '\\'";
      }
      text += c;
    }
  }
  std::string text;
  const char* escape = "";
};

std::string NotLike(const char* format, const ustring& rule) {
  const LikeLiteral literal(rule);
  return Sql(format, literal.text.c_str()) + literal.escape;
}

std::string WhiteCondition(const SelectiveSyncInfo::Set& extensions) {
  std::string condition;
  for (const FilterInfo& extension : extensions) {
    if (!condition.empty()) condition += " OR ";
    condition += NotLike("name LIKE '%%.%q'", extension.filter_desc);
  }
  return condition;
}

void LogPath(int line, const xchar* text, const FilterInfo& rule) {
  Logger::LogMsg(Logger::L_INFO, kCategory, text, line, rule.filter_desc);
}

// Goes through two sets side by side. `on_gone` gets each rule that only the old one has; false
// ends the walk, and so does the result.
template <class OnGone>
bool CompareRules(const SelectiveSyncInfo::Set& old_rules, const SelectiveSyncInfo::Set& new_rules,
                  OnGone&& on_gone) {
  auto old_rule = old_rules.begin();
  auto new_rule = new_rules.begin();
  while (old_rule != old_rules.end() || new_rule != new_rules.end()) {
    if (old_rule == old_rules.end() || (new_rule != new_rules.end() && *new_rule < *old_rule)) {
      LogPath(__LINE__, L"[INFO] filter-utils(%d): path filter '%s' (new)\n", *new_rule++);
    } else if (new_rule == new_rules.end() || *old_rule < *new_rule) {
      if (!on_gone(*old_rule++)) return false;
    } else {
      LogPath(__LINE__, L"[INFO] filter-utils(%d): path filter '%s' (not changed)\n", *new_rule++);
      ++old_rule;
    }
  }
  return true;
}

void RescanFormerlyHidden(const Registry::Entry& reg, const SelectiveSyncInfo& old_info,
                          const SelectiveSyncInfo& new_info, bool merge_mode) {
  EventManager& manager = EventManager::getInstance();
  // A prefix may have hidden anything anywhere, and a whole rescan covers all else.
  const bool go_on = CompareRules(
      old_info.black_common_prefix, new_info.black_common_prefix, [&](const FilterInfo& rule) {
        LogPath(__LINE__, L"[INFO] filter-utils(%d): path filter: '%s' (rescan watch root)\n",
                rule);
        manager.IssueRescan(reg.sess_id, "/", merge_mode);
        return false;
      });
  if (!go_on) return;
  CompareRules(old_info.black_path, new_info.black_path, [&](const FilterInfo& rule) {
    LogPath(__LINE__, L"[INFO] filter-utils(%d): path filter: '%s' (rescan old)\n", rule);
    manager.IssueRescan(reg.sess_id, rule.filter_desc, merge_mode);
    return true;
  });
}

void ResumeLocal(Registry::Entry& reg, const FilteredEvent& event, bool merge_mode) {
  if (event.is_exist) {
    PushUploadEvent(reg, event.path, event.IsDir());
  } else if (merge_mode) {
    PushDownloadEvent(reg, event.path, event.IsDir());
  } else {
    PushLocalRemoveEvent(reg, event.path, event.IsDir());
  }
}

int ResumeEvents(Registry::Entry& reg, const SelectiveSyncInfo& new_info, bool merge_mode) {
  const FileEventDB::Conditions conditions = LetThroughConditions(new_info);
  std::vector<FilteredEvent> local;
  if (reg.event_db->getLocalFilteredEvent(FilteredEvent::FILTERED_SELECTIVE_SYNC, conditions,
                                          local) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] filter-utils(%d): failed to resume local events for session #%llu\n",
                   __LINE__, reg.sess_id);
    return -1;
  }
  std::vector<FilteredEvent> server;
  if (reg.event_db->getServerFilteredEvent(FilteredEvent::FILTERED_SELECTIVE_SYNC, conditions,
                                           server) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] filter-utils(%d): failed to resume server events for session #%llu\n",
                   __LINE__, reg.sess_id);
    return -1;
  }
  for (const FilteredEvent& event : local) ResumeLocal(reg, event, merge_mode);
  for (const FilteredEvent& event : server) {
    EventManager::getInstance().PushServerEvent(FileEventDB::ToEvent(event, reg.sess_id));
  }
  return 0;
}

int ResumeAndRescan(Registry::Entry& reg, const SelectiveSyncInfo& new_info, bool merge_mode) {
  Logger::LogMsg(Logger::L_INFO, kCategory,
                 L"[INFO] filter-utils(%d): resuming events of session id #%llu\n", __LINE__,
                 reg.sess_id);
  if (ResumeEvents(reg, new_info, merge_mode) != 0) return -1;
  SelectiveSyncInfo old_info;
  if (FilterDB::getInstance().getSelectiveSyncInfo(reg.sess_id, old_info) != 0) {
    Logger::LogMsg(
        Logger::L_ERR, kCategory,
        L"[ERROR] filter-utils(%d): failed to get selective sync info from filter database\n",
        __LINE__);
    return -1;
  }
  RescanFormerlyHidden(reg, old_info, new_info, merge_mode);
  return 0;
}

int StoreRules(std::uint64_t sess_id, const SelectiveSyncInfo& info) {
  FilterDB& db = FilterDB::getInstance();
  if (db.removeSelectiveSyncInfo(sess_id) == 0 && db.setSelectiveSyncInfo(sess_id, info) == 0) {
    return 0;
  }
  Logger::LogMsg(
      Logger::L_ERR, kCategory,
      L"[ERROR] filter-utils(%d): Failed to remove selective sync info for session '%llu'.\n",
      __LINE__, sess_id);
  return -1;
}

}  // namespace

FileEventDB::Conditions LetThroughConditions(const SelectiveSyncInfo& info) {
  FileEventDB::Conditions conditions;
  for (const FilterInfo& rule : info.black_name) {
    conditions.push_back(Sql("name != '%q'", rule.filter_desc.c_str_utf8()));
  }
  for (const FilterInfo& rule : info.black_path) {
    conditions.push_back(NotLike("path NOT LIKE '%q/%%'", rule.filter_desc) +
                         Sql(" AND path != '%q'", rule.filter_desc.c_str_utf8()));
  }
  for (const FilterInfo& rule : info.black_suffix) {
    conditions.push_back(NotLike("name NOT LIKE '%%%q'", rule.filter_desc));
  }
  for (const FilterInfo& rule : info.black_prefix) {
    conditions.push_back(NotLike("name NOT LIKE '%q%%'", rule.filter_desc));
  }
  for (const FilterInfo& rule : info.black_glob) {
    conditions.push_back(Sql("name NOT GLOB '%q'", rule.filter_desc.c_str_utf8()));
  }
  for (const FilterInfo& rule : info.black_common_prefix) {
    conditions.push_back(NotLike("path NOT LIKE '%%/%q%%'", rule.filter_desc));
  }
  const ustring& size = info.black_size.filter_desc;
  if (!size.empty() && size != "0") {
    conditions.push_back(Sql("fileSize < %q", size.c_str_utf8()));
  }
  if (!info.white_ext.empty() && !info.white_ext.contains(FilterInfo(0, ustring("*")))) {
    conditions.push_back(WhiteCondition(info.white_ext));
  }
  return conditions;
}

int ReplaceFilter(Registry::Entry& reg, bool merge_mode) {
  SelectiveSyncInfo new_info;
  GetSelectiveSyncInfo(*reg.black_list, *reg.white_list, reg.event_db->getProfilePath(), new_info);
  if (ResumeAndRescan(reg, new_info, merge_mode) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] filter-utils(%d): Failed to resume_events for session '%llu'.\n",
                   __LINE__, reg.sess_id);
    return -1;
  }
  return StoreRules(reg.sess_id, new_info);
}

}  // namespace tolven
