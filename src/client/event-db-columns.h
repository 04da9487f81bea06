// Which field goes to which column, said once for each list of columns, and the readers and writers
// that go over such a list. A visitor is called with each column's name and the field.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "client/db-file-info.h"
#include "client/filtered-event.h"

namespace tolven::event_db {

// All columns of event_table but `id` and `isExist`.
template <class Info, class Visit>
void VisitRecord(Info& info, Visit&& visit) {
  visit("syncID", info.syncID);
  visit("maxSyncID", info.maxSyncID);
  visit("fileType", info.fileType);
  visit("fileSize", info.fileSize);
  visit("fileCheckSum", info.fileCheckSum);
  visit("macHash", info.macHash);
  visit("localFileModTime", info.localFileModTime);
  visit("fileModTime", info.fileModTime);
  visit("execBit", info.execBit);
  visit("serverExecBit", info.serverExecBit);
  visit("unixUid", info.unixUid);
  visit("unixGid", info.unixGid);
  visit("unixMode", info.unixMode);
  visit("unixHash", info.unixHash);
  visit("serverUnixUid", info.serverUnixUid);
  visit("serverUnixGid", info.serverUnixGid);
  visit("serverUnixMode", info.serverUnixMode);
  visit("aclAttribute", info.aclAttribute);
  visit("aclHash", info.aclHash);
  visit("serverAclAttribute", info.serverAclAttribute);
  visit("serverAclHash", info.serverAclHash);
  visit("sharePrivDisabled", info.sharePrivDisabled);
  visit("sharePrivDenyList", info.sharePrivDenyList);
  visit("sharePrivRoList", info.sharePrivRoList);
  visit("sharePrivRwList", info.sharePrivRwList);
  visit("sharePrivHash", info.sharePrivHash);
  visit("serverSharePrivDisabled", info.serverSharePrivDisabled);
  visit("serverSharePrivDenyList", info.serverSharePrivDenyList);
  visit("serverSharePrivRoList", info.serverSharePrivRoList);
  visit("serverSharePrivRwList", info.serverSharePrivRwList);
  visit("serverSharePrivHash", info.serverSharePrivHash);
  visit("inode", info.inode);
  visit("path", info.path);
}

// The local view of a row, behind its id.
template <class Info, class Visit>
void VisitLocalView(Info& info, Visit&& visit) {
  visit("isExist", info.isExist);
  visit("syncID", info.syncID);
  visit("maxSyncID", info.maxSyncID);
  visit("fileType", info.fileType);
  visit("fileSize", info.fileSize);
  visit("fileCheckSum", info.fileCheckSum);
  visit("macHash", info.macHash);
  visit("localFileModTime", info.localFileModTime);
  visit("fileModTime", info.fileModTime);
  visit("execBit", info.execBit);
  visit("unixUid", info.unixUid);
  visit("unixGid", info.unixGid);
  visit("unixMode", info.unixMode);
  visit("unixHash", info.unixHash);
  visit("aclAttribute", info.aclAttribute);
  visit("aclHash", info.aclHash);
  visit("sharePrivDisabled", info.sharePrivDisabled);
  visit("sharePrivDenyList", info.sharePrivDenyList);
  visit("sharePrivRoList", info.sharePrivRoList);
  visit("sharePrivRwList", info.sharePrivRwList);
  visit("sharePrivHash", info.sharePrivHash);
  visit("inode", info.inode);
  visit("path", info.path);
}

// What the server said of a row's attributes, under the names that the filter tables give them.
template <class Info, class Visit>
void VisitServerAttributes(Info& info, Visit&& visit) {
  visit("execBit", info.serverExecBit);
  visit("unixUid", info.serverUnixUid);
  visit("unixGid", info.serverUnixGid);
  visit("unixMode", info.serverUnixMode);
  visit("aclAttribute", info.serverAclAttribute);
  visit("aclHash", info.serverAclHash);
  visit("sharePrivDisabled", info.serverSharePrivDisabled);
  visit("sharePrivDenyList", info.serverSharePrivDenyList);
  visit("sharePrivRoList", info.serverSharePrivRoList);
  visit("sharePrivRwList", info.serverSharePrivRwList);
  visit("sharePrivHash", info.serverSharePrivHash);
}

// A row of a filter table.
template <class Filtered, class Visit>
void VisitFiltered(Filtered& event, Visit&& visit) {
  visit("isExist", event.is_exist);
  visit("filterType", event.filter_type);
  visit("syncID", event.sync_id);
  visit("maxSyncID", event.max_sync_id);
  visit("path", event.path);
  visit("name", event.name);
  visit("fileType", event.file_type);
  visit("fileSize", event.file_size);
  visit("fileCheckSum", event.file_hash);
  visit("fileModTime", event.m_time);
  visit("macHash", event.mac_hash);
  visit("inode", event.inode);
  visit("execBit", event.exec_bit);
  visit("unixUid", event.unix_uid);
  visit("unixGid", event.unix_gid);
  visit("unixMode", event.unix_mode);
  visit("aclAttribute", event.acl_attribute);
  visit("aclHash", event.acl_hash);
  visit("sharePrivDisabled", event.share_priv_disabled);
  visit("sharePrivDenyList", event.share_priv_deny_list);
  visit("sharePrivRoList", event.share_priv_ro_list);
  visit("sharePrivRwList", event.share_priv_rw_list);
  visit("sharePrivHash", event.share_priv_hash);
}

// A row of server_filter_table, or what stands for one, as a record with server fields.
template <class Info, class Visit>
void VisitServerView(Info& info, Visit&& visit) {
  FilteredEvent unused;
  visit("isExist", info.isExist);
  visit("filterType", unused.filter_type);
  visit("syncID", info.syncID);
  visit("maxSyncID", info.maxSyncID);
  visit("path", info.path);
  visit("name", unused.name);
  visit("fileType", info.fileType);
  visit("fileSize", info.fileSize);
  visit("fileCheckSum", info.fileCheckSum);
  visit("fileModTime", info.fileModTime);
  visit("macHash", info.macHash);
  visit("inode", info.inode);
  VisitServerAttributes(info, visit);
}

inline std::string_view ColumnText(sqlite3_stmt* statement, int column) {
  const auto* const text = sqlite3_column_text(statement, column);
  const int length = sqlite3_column_bytes(statement, column);
  if (text == nullptr) return {};
  return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(length)};
}

// Reads the columns of the current row, one for each call.
class ColumnReader {
 public:
  explicit ColumnReader(sqlite3_stmt* statement, int first = 0)
      : statement_(statement), next_(first) {}

  void operator()(const char*, ustring& field) { field.assign(ColumnText(statement_, next_++)); }
  template <class T>
  void operator()(const char*, T& field) {
    field = static_cast<T>(sqlite3_column_int64(statement_, next_++));
  }

 private:
  sqlite3_stmt* const statement_;
  int next_;
};

// Binds parameters from 1 on. Texts are not copied. Numbers above 2^63-1 are stored as that.
class ColumnBinder {
 public:
  explicit ColumnBinder(sqlite3_stmt* statement) : statement_(statement) {}

  void operator()(const char*, const ustring& field) {
    Note(sqlite3_bind_text64(statement_, ++last_, field.c_str_utf8(), field.size(), SQLITE_STATIC,
                             SQLITE_UTF8));
  }
  template <class T>
  void operator()(const char*, T field) {
    const auto value = static_cast<std::uint64_t>(field);
    Note(sqlite3_bind_int64(
        statement_, ++last_,
        std::is_unsigned_v<T> && value > INT64_MAX ? INT64_MAX : static_cast<std::int64_t>(value)));
  }
  int code() const { return code_; }

 private:
  void Note(int code) {
    if (code != SQLITE_OK) code_ = code;
  }
  sqlite3_stmt* const statement_;
  int last_ = 0;
  int code_ = SQLITE_OK;
};

// "a, b, c"
class ColumnNames {
 public:
  template <class T>
  void operator()(const char* name, const T&) {
    if (!text_.empty()) text_ += ", ";
    text_ += name;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace tolven::event_db
