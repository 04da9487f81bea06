#include "client/core/event-generator.h"

#include "client/core/root-proof.h"
#include "client/core/server-record.h"
#include "client/core/unanswered-uploads.h"
#include "client/event-manager.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/file-op.h"
#include "lib/log.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "worker_debug";

// What an object has of which nobody ever told: the owner does all, the others read.
constexpr std::uint32_t kDefaultMode = 0x755;
constexpr std::uint32_t kDefaultExecBit = 1;

Event MakeEvent(const Registry::Entry& entry, Event::Type type, const ustring& path, bool is_dir) {
  Event event;
  event.m_sess_id = entry.sess_id;
  event.m_type = type;
  event.m_path = path;
  if (is_dir) event.setDir();
  return event;
}

Event MakeEvent(const Registry::Entry& entry, Event::Type type, const ustring& path, bool is_dir,
                std::uint64_t sync_id, std::uint64_t max_id) {
  Event event = MakeEvent(entry, type, path, is_dir);
  event.m_sync_id = sync_id;
  event.m_max_id = max_id;
  return event;
}

int PushLocal(const Event& event) {
  EventManager::getInstance().PushLocalEvent(event);
  return 1;
}

int PushServer(const Event& event) {
  EventManager::getInstance().PushServerEvent(event);
  return 1;
}

int Refuse(const PObject& record, const char* reason) {
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] event-generator(%d): refused server event [%s]: %s\n", __LINE__,
                 record["path"].asStringView(), reason);
  return -1;
}

// A record that cannot be judged for want of the database: the batch is pulled again.
int Postpone(const Registry::Entry& entry) {
  EventManager::getInstance().CountUnappliedServerEvent(entry.sess_id);
  return -1;
}

// What the record leaves out, taken from what is known of the path. False when that is not told.
bool FillWithKnown(FileEventDB& db, Event& event) {
  event.m_exec_bit = kDefaultExecBit;
  event.m_privilege.unix_mode.mode = kDefaultMode;
  DBFileInfo known;
  const int found = db.getServerEventByPath(event.m_path, known);
  if (found == 1 && known.isExist != 0) FillFromServerView(known, event);
  return found >= 0;
}

// 0 once `info` tells what is at the path.
int Look(const Registry::Entry& entry, const ustring& path, FILE_INFO& info) {
  return FSStat(JoinPath(entry.local_path, path.view()), info, true);
}

bool IsThere(const Registry::Entry& entry, const ustring& path) {
  FILE_INFO info;
  return Look(entry, path, info) == 0 && info.isExist;
}

bool IsRootProved(const Registry::Entry& entry) {
  return entry.root_proof == nullptr || entry.root_proof->LooksProved();
}

// Whether the record tells of a content that was sent from here without an answer: the answer comes
// this way. What is here by now, another content or nothing, goes on from that version. While a
// worker may be writing the record for an older event, it is left to the worker.
bool IsUnansweredUpload(Registry::Entry& entry, const Event& event, DBFileInfo row) {
  if (event.m_type == Event::EV_REMOVE || event.isDir() || event.m_data_hash.empty() ||
      EventManager::getInstance().IsServerFileEventPending(entry.sess_id, event.m_path) ||
      !UnansweredUploads::getInstance().Take(entry.sess_id, event.m_path, event.m_data_hash) ||
      !IsRootProved(entry)) {
    return false;
  }
  row.path = event.m_path;
  row.isExist = 1;
  row.fileType = 0;
  row.syncID = event.m_sync_id;
  row.maxSyncID = event.m_max_id;
  row.fileSize = event.m_data_size;
  row.fileCheckSum = event.m_data_hash;
  row.fileModTime = event.m_time;
  // No file has this time: whatever is here has to be compared.
  row.localFileModTime = 0;
  row.signaturePath.clear();
  // The row was read without what the server said of its rights.
  row.serverExecBit = kDefaultExecBit;
  row.serverUnixMode = kDefaultMode;
  if (entry.event_db->fillServerColumns(event.m_path, row) < 0) return false;
  if (entry.event_db->setEventInfo(row) != 0) return false;
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] event-generator(%d): File [%s] is what was sent without an answer.\n",
                 __LINE__, event.m_path);
  FILE_INFO local;
  if (Look(entry, event.m_path, local) == 0 && !local.isExist) {
    PushLocalRemoveEvent(entry, event.m_path, false);
  } else {
    PushUploadEvent(entry, event.m_path, local.type == FT_DIR);
  }
  return true;
}

// Whether the client's own change has come back: the number is no news. When the file is gone it is
// wanted again, unless it was removed here and the server is yet to hear of that. Where the whole
// folder is away, nothing in it counts as gone.
bool IsEcho(const Registry::Entry& entry, const Event& event) {
  if (IsThere(entry, event.m_path) || !IsRootProved(entry)) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] event-generator(%d): File [%s] is already up-to-date (server echo).\n",
                   __LINE__, event.m_path);
    return true;
  }
  if (!EventManager::getInstance().IsLocalRemovalPending(entry.sess_id, event.m_path)) return false;
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] event-generator(%d): File [%s] is being removed (server echo).\n",
                 __LINE__, event.m_path);
  return true;
}

}  // namespace

int PushEvent(Registry::Entry& entry, const PObject& record) {
  if (entry.event_db == nullptr) return Refuse(record, "the session has no database");
  FileEventDB& db = *entry.event_db;
  Event event;
  const char* error = ReadServerRecord(record, entry.isMSDOS, event);
  if (error == nullptr && LeadsThroughLink(entry.local_path, event.m_path)) {
    error = "the path leads through a link";
  }
  if (error != nullptr) return Refuse(record, error);

  DBFileInfo row;
  const int found = db.getEventInfo(event.m_path, row);
  if (found < 0) return Postpone(entry);
  if (found == 0 && event.m_type == Event::EV_REMOVE) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] event-generator(%d): Server delete event [%s] and cannot find db "
                   L"record (server echo).\n",
                   __LINE__, event.m_path);
    return 2;
  }
  if (found == 1 && event.m_sync_id <= row.syncID && IsEcho(entry, event)) return 0;
  if (event.m_sync_id > row.syncID && IsUnansweredUpload(entry, event, row)) return 0;

  if (event.m_type != Event::EV_REMOVE) {
    // First what is known, then what the record tells.
    if (!FillWithKnown(db, event)) return Postpone(entry);
    ReadServerRecord(record, entry.isMSDOS, event);
  }
  event.m_sess_id = entry.sess_id;
  return PushServer(event);
}

int PushEvent(Registry::Entry& entry, const FilteredEvent& filtered) {
  if (filtered.is_server) {
    PushServer(FileEventDB::ToEvent(filtered, entry.sess_id));
    return 0;
  }
  return filtered.is_exist ? PushUploadEvent(entry, filtered.path, filtered.IsDir())
                           : PushDownloadEvent(entry, filtered.path, filtered.IsDir());
}

int PushServerRemoveEvent(Registry::Entry& entry, const ustring& path, bool is_dir,
                          std::uint64_t sync_id, std::uint64_t max_id) {
  Event event = MakeEvent(entry, Event::EV_REMOVE, path, is_dir, sync_id, max_id);
  event.setServerEvent();
  return PushServer(event);
}

int PushLocalRemoveEvent(Registry::Entry& entry, const ustring& path, bool is_dir) {
  return PushLocal(MakeEvent(entry, Event::EV_REMOVE, path, is_dir));
}

int PushUploadEvent(Registry::Entry& entry, const ustring& path, bool is_dir) {
  return PushLocal(MakeEvent(entry, Event::EV_MODIFY, path, is_dir));
}

int PushDownloadEvent(Registry::Entry& entry, const ustring& path, bool is_dir) {
  Event event = MakeEvent(entry, Event::EV_MODIFY, path, is_dir, kForcedDownload, kForcedDownload);
  event.setServerEvent();
  DBFileInfo known;
  if (entry.event_db != nullptr && entry.event_db->getServerEventByPath(path, known) == 1) {
    FillFromServerView(known, event);
  } else {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] event-generator(%d): force download event (%s) missing required "
                   L"info\n",
                   __LINE__, path);
  }
  return PushServer(event);
}

int PushExpandLocalDeleteEvent(Registry::Entry& entry, const ustring& path, bool is_dir,
                               std::uint64_t sync_id, std::uint64_t max_id) {
  Event event = MakeEvent(entry, Event::EV_CREATE, path, is_dir, sync_id, max_id);
  event.setLocalSubDirRescan();
  return PushServer(event);
}

int PushExpandServerDeleteEvent(Registry::Entry& entry, const ustring& path, bool is_dir,
                                std::uint64_t sync_id, std::uint64_t max_id) {
  Event event = MakeEvent(entry, Event::EV_CREATE, path, is_dir, sync_id, max_id);
  event.setServerSubDirRescan();
  return PushLocal(event);
}

}  // namespace tolven
