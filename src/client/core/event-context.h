// What a handler sees of the world while it works on one event: the event, its session, its
// connection, the paths that follow from them, the event's row in the database, and the stream for
// transfers. Each worker owns one.
//
// Only the owner touches it; GetTransferStatus alone may be called from any thread, so the context
// outlives whoever asks. Session and connection are copies that keep the database and the channels
// alive, whatever the control thread does. Failures are logged as "worker_debug".
#pragma once

#include <cstdint>

#include "client/core/connection.h"
#include "client/core/registry.h"
#include "client/core/session-layout.h"
#include "client/core/transfer-status.h"
#include "client/db-file-info.h"
#include "client/event.h"
#include "protocol/stream.h"
#include "ustring/ustring.h"

namespace tolven {

class ProtocolClient;

class EventContext {
 public:
  // In the session's root: temporary files of transfers, and in it the recycle bin.
  static constexpr const char* WORKING_DIRECTORY = kWorkingDirectory;
  static constexpr const char* RECYCLE_BIN = kRecycleBin;

  EventContext() = default;
  EventContext(const EventContext&) = delete;
  EventContext& operator=(const EventContext&) = delete;

  // No event, no session, no connection.
  void Clear();
  // To be called once event, session and connection are set: makes the paths and reads the event's
  // row. Nothing can be judged while IsRecordKnown is false: the database did not tell whether
  // there is a row, and an empty record would make every change a conflict.
  void Update();
  bool IsRecordKnown() const { return is_record_known; }

  Event& GetEvent() { return current_event; }
  const Event& GetEvent() const { return current_event; }
  void SetEvent(const Event& event) { current_event = event; }
  Registry::Entry& GetEntry() { return root_entry; }
  const Registry::Entry& GetEntry() const { return root_entry; }
  void SetEntry(const Registry::Entry& entry) { root_entry = entry; }
  Connection& GetConnection() { return connection; }
  const Connection& GetConnection() const { return connection; }
  void SetConnection(const Connection& value) { connection = value; }
  const ConnectionInfo& GetConnectionInfo() const { return connection.getConnectionInfo(); }

  std::uint64_t GetViewId() const { return root_entry.view_id; }
  std::uint64_t GetNodeId() const { return root_entry.node_id; }
  const ustring& GetPath() const { return current_event.m_path; }  // below the session's root
  const ustring& GetLocalWatch() const { return root_entry.local_path; }
  const ustring& GetRemoteWatch() const { return root_entry.remote_path; }

  // Local paths, absolute.
  const ustring& GetFullPath() const { return full_path; }  // of the event
  void SetFullPath(const ustring& path) { full_path = path; }
  const ustring& GetWorkingDirectory() const { return working_directory; }
  void SetWorkingDirectory(const ustring& path) { working_directory = path; }
  const ustring& GetSignatureDirectory() const { return sign_directory; }
  void SetSignatureDirectory(const ustring& path) { sign_directory = path; }
  ustring GetRecycleBinDir() const;

  // The session's lists; one without rules when there is no session.
  BlackList2& GetBlackList() const;
  ProfileSet& ServerBlackLists() const;
  WhiteListCpp& GetWhiteList() const;
  ForceHashCheckListCpp& GetForceHashCheckList() const;

  // Null when there is no session.
  const shared_pointer<FileEventDB>& GetEventDatabase() const { return root_entry.event_db; }
  // In place of null one that was never opened: every call on it fails.
  FileEventDB& GetEventDatabaseSafe() const;

  // The event's row; isExist is 0 when it has none.
  DBFileInfo& GetDatabaseInfo() { return database_record; }
  const DBFileInfo& GetDatabaseInfo() const { return database_record; }
  void SetDatabaseInfo(const DBFileInfo& info) { database_record = info; }
  // Writes a row, which becomes the record of this context: 0 or -1.
  int UpdateDatabaseInfo(const DBFileInfo& info);
  // Both remove the rows of the event's path and of all below it, and clear the record: 0 or -1.
  // The first after both sides agreed on the removal, the second for what is gone on this side.
  int CommitRemoveDatabase();
  int RemoveLocalDatabaseInfo();

  // On this context's stream and connection; what it receives goes to the working directory. It may
  // not outlive the context.
  ProtocolClient GetProtocolClient() const;
  // Sizes only while the content of a file is under way.
  TransferStatus GetTransferStatus() const;
  PStream& GetStream() const { return trans_stream; }

 private:
  int FinishRemove(int line, int code);

  Event current_event;
  Registry::Entry root_entry;
  Connection connection;
  ustring full_path, working_directory, sign_directory;
  DBFileInfo database_record;
  bool is_record_known = true;
  mutable PStream trans_stream;
};

}  // namespace tolven
