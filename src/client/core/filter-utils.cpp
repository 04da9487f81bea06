#include "client/core/filter-utils.h"

#include <string>
#include <string_view>
#include <utility>
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
constexpr std::size_t kMostTerms = 50;  // of one chain of ANDs or ORs

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

std::string Like(const char* format, const ustring& rule) {
  const LikeLiteral literal(rule);
  return Sql(format, literal.text.c_str()) + literal.escape;
}

// Joins terms in small groups of groups: SQLite refuses an expression that nests too deeply, and
// each operator of a flat chain counts as a level.
std::vector<std::string> Grouped(std::vector<std::string> terms, const char* op) {
  while (terms.size() > kMostTerms) {
    std::vector<std::string> groups;
    for (std::size_t i = 0; i < terms.size(); ++i) {
      if (i % kMostTerms == 0) {
        groups.push_back("(" + terms[i]);
      } else {
        groups.back() += op + terms[i];
      }
      if (i % kMostTerms == kMostTerms - 1 || i + 1 == terms.size()) groups.back() += ")";
    }
    terms = std::move(groups);
  }
  return terms;
}

// Rules on names of files say nothing about folders.
std::string OfFiles(const std::string& condition) { return "fileType != 0 OR " + condition; }

std::string WhiteCondition(const SelectiveSyncInfo::Set& extensions) {
  std::vector<std::string> terms;
  for (const FilterInfo& extension : extensions) {
    terms.push_back(Like("name LIKE '%%.%q'", extension.filter_desc));
  }
  std::string condition;
  for (const std::string& term : Grouped(std::move(terms), " OR ")) {
    condition += (condition.empty() ? "" : " OR ") + term;
  }
  return OfFiles(condition);
}

// An extension and a suffix look alike here, but an extension is what follows the last dot of a
// name, and a dot at its begin begins none.
std::string SuffixCondition(const ustring& suffix) {
  const std::string condition = Like("name NOT LIKE '%%%q'", suffix);
  if (!suffix.view().starts_with('.')) return OfFiles(condition);
  if (suffix.view().find('.', 1) != std::string_view::npos) return {};
  return OfFiles(condition + " OR " + Like("name LIKE '%q'", suffix));
}

// "*" alone is a wildcard in a rule; the statement knows more.
std::string GlobCondition(const ustring& rule) {
  std::string pattern;
  for (const char c : rule.view()) {
    if (c == '?' || c == '[') {
      pattern += {'[', c, ']'};
    } else {
      pattern += c;
    }
  }
  return OfFiles(Sql("name NOT GLOB '%q'", pattern.c_str()));
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
  const auto add = [&conditions](const std::string& condition) {
    if (!condition.empty()) conditions.push_back("(" + condition + ")");
  };
  for (const FilterInfo& rule : info.black_name) {
    add(OfFiles(Sql("name != '%q'", rule.filter_desc.c_str_utf8())));
  }
  for (const FilterInfo& rule : info.black_path) {
    add(Like("path NOT LIKE '%q/%%'", rule.filter_desc) +
        Sql(" AND path != '%q'", rule.filter_desc.c_str_utf8()));
  }
  for (const FilterInfo& rule : info.black_suffix) add(SuffixCondition(rule.filter_desc));
  for (const FilterInfo& rule : info.black_prefix) {
    add(OfFiles(Like("name NOT LIKE '%q%%'", rule.filter_desc)));
  }
  for (const FilterInfo& rule : info.black_glob) add(GlobCondition(rule.filter_desc));
  for (const FilterInfo& rule : info.black_common_prefix) {
    add(Like("path NOT LIKE '%%/%q%%'", rule.filter_desc));
  }
  const ustring& size = info.black_size.filter_desc;
  if (!size.empty() && size != "0") add(OfFiles(Sql("fileSize <= %q", size.c_str_utf8())));
  if (!info.white_ext.empty() && !info.white_ext.contains(FilterInfo(0, ustring("*")))) {
    add(WhiteCondition(info.white_ext));
  }
  return Grouped(std::move(conditions), " AND ");
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
