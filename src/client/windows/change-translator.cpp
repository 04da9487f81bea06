#include "client/windows/change-translator.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "client/core/session-layout.h"
#include "client/event-path.h"
#include "client/windows/detector-log.h"
#include "platform/paths.h"

namespace tolven {

namespace {

using platform::WatchAction;

bool Is(std::uint32_t action, WatchAction wanted) {
  return action == static_cast<std::uint32_t>(wanted);
}

// The path is gone: nothing on disk tells more about it.
bool IsGone(std::uint32_t action) {
  return Is(action, WatchAction::kRemoved) || Is(action, WatchAction::kRenamedOld);
}

const char* ActionText(std::uint32_t action) {
  switch (static_cast<WatchAction>(action)) {
    case WatchAction::kAdded:
      return "FILE_ACTION_ADDED";
    case WatchAction::kRemoved:
      return "FILE_ACTION_REMOVED";
    case WatchAction::kModified:
      return "FILE_ACTION_MODIFIED";
    case WatchAction::kRenamedOld:
      return "FILE_ACTION_RENAMED_OLD_NAME";
    case WatchAction::kRenamedNew:
      return "FILE_ACTION_RENAMED_NEW_NAME";
  }
  return "FILE_ACTION_UNKNOWN";
}

ustring WithSlashes(std::string text) {
  std::replace_if(text.begin(), text.end(), platform::IsPathSeparator, '/');
  return ustring(std::move(text));
}

bool EqualsWithoutCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&lower](char x, char y) { return lower(x) == lower(y); });
}

// Makes `path` what `spelled` is called below the root, which the system may spell otherwise than
// we do. False, leaving it alone, when the place does not lie there.
bool TakeSpelling(const ustring& spelled, const ustring& root, ustring& path) {
  const ustring full = WithSlashes(spelled.str());
  std::string_view folder = root.view();
  if (folder.ends_with('/')) folder.remove_suffix(1);
  const std::string_view head = full.view().substr(0, folder.size());
  const bool ignores_case = platform::IsPathSeparator('\\');
  if (head != folder && !(ignores_case && EqualsWithoutCase(head, folder))) return false;
  const std::string_view below = full.view().substr(head.size());
  if (below.size() < 2 || below.front() != '/') return false;
  path = ustring(below);
  return true;
}

// Whether some component of `path` is the working directory, and which.
enum class Own { NO, BELOW, ITSELF };

Own FindWorkingDirectory(std::string_view path) {
  int depth = 0;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t begin = at + 1;  // behind the separator
    at = std::min(path.find('/', begin), path.size());
    ++depth;
    if (!EqualsWithoutCase(path.substr(begin, at - begin), kWorkingDirectory)) continue;
    return depth == 1 && at == path.size() ? Own::ITSELF : Own::BELOW;
  }
  return Own::NO;
}

bool IsRecycleBin(std::string_view path) {
  return EqualsWithoutCase(path, std::string("/") + kWorkingDirectory + "/" + kRecycleBin);
}

}  // namespace

ChangeTranslator::ChangeTranslator(ChangeWorld& world, std::vector<ustring> private_dirs)
    : world_(world), private_dirs_(std::move(private_dirs)) {
  for (ustring& prefix : private_dirs_) prefix = WithSlashes(prefix.str());
}

int ChangeTranslator::Translate(Event& event, std::uint64_t sess_id, const ustring& root,
                                const platform::WatchRecord& record) {
  const std::uint32_t action = record.action;
  DETECTOR_DEBUG("%s '%s'\n", ActionText(action), record.name);
  event.clear();
  event.m_sess_id = sess_id;
  ustring path = WithSlashes("/" + record.name.str());
  ustring full = JoinPath(root, path.view());
  if (!IsGone(action)) {
    DETECTOR_DEBUG("original full path: '%s', path: '%s'\n", full, path);
    if (TakeSpelling(world_.LongPath(full), root, path)) full = JoinPath(root, path.view());
    DETECTOR_DEBUG("converted full path: '%s', path: '%s'\n", full, path);
  }

  if (IsPrivate(full)) return EndRenameOutside(event, action);
  if (IsFromWorkingDirectory(root, path, action, sess_id)) return EndRenameOutside(event, action);
  if (ReadAction(event, path, action) != 0) return -1;
  return FindKind(event, full, action);
}

bool ChangeTranslator::IsPrivate(const ustring& full) const {
  return std::any_of(private_dirs_.begin(), private_dirs_.end(), [&full](const ustring& prefix) {
    return full.view().starts_with(prefix.view());
  });
}

bool ChangeTranslator::IsFromWorkingDirectory(const ustring& root, const ustring& path,
                                              std::uint32_t action, std::uint64_t sess_id) {
  const Own own = FindWorkingDirectory(path.view());
  if (own == Own::NO) return false;
  if (IsGone(action) && (own == Own::ITSELF || IsRecycleBin(path.view()))) {
    // Without it every download would fail.
    DETECTOR_DEBUG("recreating working directory (%d)\n", action);
    world_.RecreateWorkingDirectory(sess_id, root);
  }
  DETECTOR_DEBUG("ignoring changes to %s\n", path);
  return true;
}

int ChangeTranslator::EndRenameOutside(Event& event, std::uint32_t action) {
  // An old name that is not reported leaves its new one alone; what waited before got none.
  if (Is(action, WatchAction::kRenamedOld)) cache_.erase(event.m_sess_id);
  if (!Is(action, WatchAction::kRenamedNew)) return -1;
  const auto cached = cache_.find(event.m_sess_id);
  if (cached == cache_.end()) return -1;
  event.m_type = Event::EV_REMOVE;
  event.m_path = std::move(cached->second);
  cache_.erase(cached);
  return FindRememberedKind(event);
}

int ChangeTranslator::ReadAction(Event& event, const ustring& path, std::uint32_t action) {
  event.m_path = path;
  switch (static_cast<WatchAction>(action)) {
    case WatchAction::kAdded:
      event.m_type = Event::EV_CREATE;
      return 0;
    case WatchAction::kRemoved:
      event.m_type = Event::EV_REMOVE;
      return 0;
    case WatchAction::kModified:
      event.m_type = Event::EV_MODIFY;
      return 0;
    case WatchAction::kRenamedOld:
      DETECTOR_DEBUG("hide rename event (%s)\n", path);
      cache_[event.m_sess_id] = path;
      return -1;
    case WatchAction::kRenamedNew:
      event.m_type = Event::EV_CREATE;
      if (const auto cached = cache_.find(event.m_sess_id); cached != cache_.end()) {
        event.m_type = Event::EV_RENAME;
        event.m_opt = path;
        event.m_path = std::move(cached->second);
        cache_.erase(cached);
      }
      return 0;
  }
  DETECTOR_ERROR("invalie file action (%d)\n", action);
  return -1;
}

int ChangeTranslator::FindKind(Event& event, const ustring& full, std::uint32_t action) {
  switch (world_.Look(full)) {
    case ChangeWorld::Node::MISSING:
      return FindRememberedKind(event);
    case ChangeWorld::Node::FILE:
      return 0;
    case ChangeWorld::Node::DIRECTORY:
      event.setDir();
      // That its content changed is told by the content.
      return Is(action, WatchAction::kModified) ? -1 : 0;
    case ChangeWorld::Node::NO_USER_DATA:
      break;
  }
  if (event.m_type != Event::EV_RENAME) return -1;
  // What was renamed into something else is gone under its old name all the same.
  event.m_type = Event::EV_REMOVE;
  event.m_opt.clear();
  return FindRememberedKind(event);
}

int ChangeTranslator::FindRememberedKind(Event& event) {
  bool is_dir = false;
  const int found = world_.FindRemembered(event.m_sess_id, event.m_path, is_dir);
  if (found < 0) {
    DETECTOR_WARNING("can not find registry entry for session %llu \n", event.m_sess_id);
    return -1;
  }
  if (found == 0) {
    DETECTOR_ERROR("can't find file type of deleted item %s\n", event.m_path);
    return -1;
  }
  DETECTOR_DEBUG("file type of deleted item %s is %d\n", event.m_path, is_dir ? 1 : 0);
  if (is_dir) event.setDir();
  return 0;
}

std::vector<Event> SplitRename(const Event& event) {
  if (event.m_type != Event::EV_RENAME) return {event};
  Event removal = event, creation = event;
  removal.m_type = Event::EV_REMOVE;
  removal.m_opt.clear();
  creation.m_type = Event::EV_CREATE;
  creation.m_path = event.m_opt;
  creation.m_opt.clear();
  return {removal, creation};
}

}  // namespace tolven
