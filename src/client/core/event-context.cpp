#include "client/core/event-context.h"

#include "client/core/protocol-client.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/black-list2.h"
#include "lib/force-hash-check-list-cpp.h"
#include "lib/log.h"
#include "lib/profile-set.h"
#include "lib/white-list-cpp.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "worker_debug";

// The object of the session, or one that has nothing.
template <class T>
T& Safe(const shared_pointer<T>& object) {
  static T empty;
  return object == nullptr ? empty : *object;
}

}  // namespace

void EventContext::Clear() {
  current_event.clear();
  root_entry.clear();
  connection.clear();
  full_path.clear();
  working_directory.clear();
  sign_directory.clear();
  database_record.Clear();
  is_record_known = true;
}

void EventContext::Update() {
  sign_directory = root_entry.config_path + "/db/sign";
  full_path = JoinPath(root_entry.local_path, current_event.m_path.view());
  working_directory = JoinPath(root_entry.local_path, WORKING_DIRECTORY);
  const ustring row = current_event.m_path.empty() ? ustring("/") : current_event.m_path;
  const int found = GetEventDatabaseSafe().getEventInfo(row, database_record);
  if (found != 1) database_record.Clear();
  is_record_known = found >= 0 || root_entry.event_db == nullptr;
}

ustring EventContext::GetRecycleBinDir() const { return working_directory + "/" + RECYCLE_BIN; }

BlackList2& EventContext::GetBlackList() const { return Safe(root_entry.black_list); }

ProfileSet& EventContext::ServerBlackLists() const { return Safe(root_entry.server_black_lists); }

WhiteListCpp& EventContext::GetWhiteList() const { return Safe(root_entry.white_list); }

ForceHashCheckListCpp& EventContext::GetForceHashCheckList() const {
  return Safe(root_entry.force_hash_check_list);
}

FileEventDB& EventContext::GetEventDatabaseSafe() const {
  return root_entry.event_db == nullptr ? FileEventDB::getInstance() : *root_entry.event_db;
}

int EventContext::UpdateDatabaseInfo(const DBFileInfo& info) {
  if (root_entry.event_db == nullptr) return -1;
  const int code = root_entry.event_db->setEventInfo(info);
  if (code < 0) {
    Logger::LogMsg(
        Logger::L_ERR, kCategory,
        L"[ERROR] event-context(%d): UpdateDatabaseInfo: Failed to update database. (code: %d)\n",
        __LINE__, code);
    return -1;
  }
  database_record = info;
  return 0;
}

int EventContext::CommitRemoveDatabase() {
  return FinishRemove(__LINE__, root_entry.event_db == nullptr
                                    ? 0
                                    : root_entry.event_db->commitRemove(current_event.m_path));
}

int EventContext::RemoveLocalDatabaseInfo() {
  return FinishRemove(__LINE__, root_entry.event_db == nullptr
                                    ? 0
                                    : root_entry.event_db->rmLocalEventInfo(current_event.m_path));
}

int EventContext::FinishRemove(int line, int code) {
  if (root_entry.event_db == nullptr) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] event-context(%d): RemoveDatabaseInfo: Missing database handle.\n",
                   line);
    return -1;
  }
  if (code < 0) {
    Logger::LogMsg(
        Logger::L_ERR, kCategory,
        L"[ERROR] event-context(%d): RemoveDatabaseInfo: Failed to update database. (code: %d).\n",
        line, code);
    return -1;
  }
  database_record.Clear();
  return 0;
}

ProtocolClient EventContext::GetProtocolClient() const {
  ProtocolClient client(&trans_stream, connection);
  client.SetReceiveLocation(working_directory);
  return client;
}

TransferStatus EventContext::GetTransferStatus() const {
  ustring item;
  std::uint64_t sent = 0, total = 0;
  trans_stream.GetStatus(item, sent, total);
  TransferStatus status;
  if (item == "file.file.data" || item == "file.data") {
    status.SetSentSize(sent);
    status.SetTotalSize(total);
    status.SetStatus(TransferStatus::STATUS_TRANSFER);
  }
  return status;
}

}  // namespace tolven
