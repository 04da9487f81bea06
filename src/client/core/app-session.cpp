// Sessions: pairs of a local and a server folder, as the UI tells them.
#include <algorithm>
#include <vector>

#include "client/core/app.h"
#include "client/core/event-generator.h"
#include "client/core/registry.h"
#include "client/core/session-setup.h"
#include "client/core/syncer.h"
#include "client/event-manager.h"
#include "client/event-path.h"
#include "client/windows/detector-win-vol.h"
#include "client/windows/detector-win2.h"
#include "lib/file-op.h"
#include "lib/log.h"

namespace tolven {

namespace {

constexpr const char* kCategory = "client_debug";

// The task at a place of the table, null while there are none.
template <class T>
T* TaskAt(const TaskTable& tasks, TaskIndex index) {
  return index < tasks.size() ? dynamic_cast<T*>(tasks[index].get()) : nullptr;
}

AbortFilter FilterOf(const PObject& msg) {
  AbortFilter filter;
  if (msg.hasMember("session_id")) filter.SetSession(msg["session_id"].asUInt64());
  if (msg.hasMember("connection_id")) filter.SetConnection(msg["connection_id"].asUInt64());
  return filter;
}

void SetPause(const AbortFilter& filter, bool pause) {
  std::vector<Registry::Entry> entries;
  Registry::getInstance().GetAll(entries);
  for (const Registry::Entry& entry : entries) {
    if (filter.MatchConnection(entry.conn_id) || filter.MatchSession(entry.sess_id)) {
      Registry::getInstance().SetPause(entry.sess_id, pause);
    }
  }
}

// Two paths can lead to one folder.
bool IsSameFolder(const ustring& a, const ustring& b) {
  if (a == b) return true;
  FILE_INFO one, other;
  if (FSStat(a, one, false) != 0 || FSStat(b, other, false) != 0) return false;
  return one.isExist && other.isExist && one.file_id == other.file_id &&
         one.volume_id == other.volume_id;
}

bool IsFolderInUse(const Registry::Entry& added) {
  std::vector<Registry::Entry> entries;
  Registry::getInstance().GetAll(entries);
  return std::any_of(entries.begin(), entries.end(), [&added](const Registry::Entry& entry) {
    return entry.sess_id != added.sess_id && IsSameFolder(entry.local_path, added.local_path);
  });
}

}  // namespace

void TolvenhubApp::pause_session(const PObject& msg, PObject&) {
  const AbortFilter filter = FilterOf(msg);
  pause_worker();
  interrupt_worker(filter);
  SetPause(filter, true);
  resume_worker();
}

void TolvenhubApp::resume_session(const PObject& msg, PObject&) { SetPause(FilterOf(msg), false); }

void TolvenhubApp::add_session(const PObject& msg, PObject& result) {
  for (const char* key : {"connection_id", "session_id", "view_id"}) {
    if (!msg.hasMember(key)) {
      result["error"] = "Invalid parameters.";
      return;
    }
  }
  // Everywhere else this id stands for all sessions.
  if (msg["session_id"].asUInt64() == 0) {
    result["error"] = "Invalid parameters.";
    return;
  }
  if (create_registry_entry(msg, result) == 0) return;
  Logger::LogMsg(Logger::L_WARNING, kCategory,
                 L"[WARNING] app(%d): session %llu is not added, failed to create registry entry\n",
                 __LINE__, msg["session_id"].asUInt64());
  if (!result.hasMember("error")) result["error"] = "Failed to create registry entry.";
}

int TolvenhubApp::create_registry_entry(const PObject& params, PObject& result) {
  auto* const detector = TaskAt<Detector>(task_, TASK_DETECTOR);
  auto* const volumes = TaskAt<DetectorVol>(task_, TASK_DETECTOR_VOL);
  auto* const syncer = TaskAt<Syncer>(task_, TASK_SYNCER);
  if (detector == nullptr || volumes == nullptr || syncer == nullptr) return -1;

  const std::uint64_t sess_id = params["session_id"].asUInt64();
  Registry::Entry known;
  if (Registry::getInstance().Find(sess_id, known) == 1) remove_session(params, result);
  SessionSetup setup(params);
  if (IsFolderInUse(setup.entry())) {
    result["error"] = "Sync folder is in use.";
    return -1;
  }
  if (setup.Run() != 0) {
    if (!setup.error().empty()) result["error"] = setup.error();
    return -1;
  }
  const Registry::Entry& entry = setup.entry();
  if (detector->AddWatch(entry.local_path, sess_id) != 0 ||
      volumes->AddWatch(RealFolder(entry.local_path), sess_id) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] app(%d): Failed to add watch for session %llu at '%s'\n", __LINE__,
                   sess_id, entry.local_path);
    // A watch that is left would stand in the way of the next one with this id.
    detector->RemoveWatch(sess_id);
    volumes->RemoveWatch(sess_id);
    return -1;
  }
  Registry::getInstance().Set(entry);
  syncer->AddRescanEvent(sess_id, setup.merge());
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): Folder '%s' is ready (setting: %s)\n",
                 __LINE__, entry.local_path, params.toString());
  return 0;
}

void TolvenhubApp::remove_session(const PObject& msg, PObject& result) {
  const std::uint64_t id = msg["session_id"].asUInt64();
  AbortFilter filter;
  filter.SetSession(id);
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): session #%llu is removed\n", __LINE__,
                 id);
  pause_worker();
  interrupt_worker(filter);
  if (id != 0) {
    remove_one_session(id, result);
  } else {
    Registry::Entry entry;
    while (Registry::getInstance().FindNext(entry.sess_id, entry) == 1) {
      remove_one_session(entry.sess_id, result);
    }
  }
  resume_worker();
}

void TolvenhubApp::remove_one_session(std::uint64_t id, PObject& result) {
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): remove_one_session '%llu'.\n",
                 __LINE__, id);
  Registry::Entry entry;
  if (Registry::getInstance().Find(id, entry) != 1) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] app(%d): invalid session %llu, stop remove\n", __LINE__, id);
    result["error"] = "Invalid session.";
    return;
  }
  Registry::getInstance().Clear(id);
  if (auto* const detector = TaskAt<Detector>(task_, TASK_DETECTOR)) detector->RemoveWatch(id);
  if (auto* const volumes = TaskAt<DetectorVol>(task_, TASK_DETECTOR_VOL)) {
    volumes->RemoveWatch(id);
  }
  EventManager::getInstance().ClearSessionEventPool(id);
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): session '%llu' is removed.\n",
                 __LINE__, id);
}

void TolvenhubApp::add_event(const PObject& msg, PObject&) {
  const std::uint64_t id = msg["session_id"].asUInt64();
  Registry::Entry entry;
  if (Registry::getInstance().Find(id, entry) != 1) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): invalid session id %llu\n",
                   __LINE__, id);
    return;
  }
  const ustring path = msg["path"].asString().empty() ? ustring("/") : msg["path"].asString();
  if (!IsReceivedPath(path)) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): invalid path '%s'\n", __LINE__,
                   path);
    return;
  }
  const bool is_dir = msg["is_dir"].asBool();
  if (msg["type"].asString() == "upload") {
    Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): add upload event '%s'\n", __LINE__,
                   path);
    PushUploadEvent(entry, path, is_dir);
  } else if (msg["type"].asString() == "remove") {
    Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): add remove event '%s'\n", __LINE__,
                   path);
    PushLocalRemoveEvent(entry, path, is_dir);
  }
}

}  // namespace tolven
