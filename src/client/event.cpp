#include "client/event.h"

#include <string>
#include <utility>

namespace tolven {

namespace {

std::string ModeText(const Event& event) {
  std::string text = event.isServerEvent() ? "server" : "local";
  text += event.isDir() ? ",dir" : ",file";
  if (event.isExpand()) text += ",expand";
  if (event.isRescan()) text += ",rescan";
  if (event.isServerSubDirRescan() || event.isServerSubDirRescanWithStat()) {
    text += ",server_sub_dir_rescan";
  }
  if (event.isLocalSubDirRescan() || event.isLocalSubDirRescanWithStat()) {
    text += ",local_sub_dir_rescan";
  }
  return text;
}

std::string PrivilegeText(const Event& event) {
  const Event::PrivilegeAttr& attr = event.m_privilege;
  std::string text = " exec_bit = " + std::to_string(event.m_exec_bit);
  text += " uid = " + std::to_string(attr.unix_mode.uid);
  text += " gid = " + std::to_string(attr.unix_mode.gid);
  text += " mode = " + std::to_string(attr.unix_mode.mode);
  const auto add = [&text](const char* label, const ustring& value) {
    text += label;
    text += value.view();
  };
  add(" acl = ", attr.zent_acl.zent_acl);
  add(" acl_hash = ", attr.zent_acl.zent_acl_hash);
  text += " share_priv_disabled = " + std::to_string(attr.share_priv.share_priv_disabled);
  add(" share_priv_deny_list = ", attr.share_priv.share_priv_deny_list);
  add(" share_priv_ro_list = ", attr.share_priv.share_priv_ro_list);
  add(" share_priv_rw_list = ", attr.share_priv.share_priv_rw_list);
  add(" share_priv_hash = ", attr.share_priv.share_priv_hash);
  return text;
}

}  // namespace

void Event::PrivilegeAttr::clear() {
  unix_mode.clear();
  zent_acl.clear();
  share_priv.clear();
}

bool Event::isSubDirRescan() const {
  return has(F_LOCAL_SUBDIR_RESCAN | F_SERVER_SUBDIR_RESCAN | F_LOCAL_SUBDIR_RESCAN_STAT |
             F_SERVER_SUBDIR_RESCAN_STAT);
}

void Event::swap(Event& other) { std::swap(*this, other); }

const char* Event::TypeText(Type type) {
  switch (type) {
    case EV_EMPTY:
      return "EV_EMPTY";
    case EV_CREATE:
      return "EV_ADD";
    case EV_REMOVE:
      return "EV_REMOVE";
    case EV_MODIFY:
      return "EV_MODIFY";
    case EV_RENAME:
      return "EV_RENAME";
  }
  return "";
}

ustring Event::toString() const {
  std::string text = std::string("Event<") + TypeText(m_type) + ">: ";
  if (m_type == EV_RENAME) {
    text += std::string("from '") + m_path.str() + "', to '" + m_opt.str() + "'";
  } else {
    text += "[" + std::to_string(m_sync_id) + "] " + m_path.str() + " (" + ModeText(*this) + ")";
  }
  if (isFile()) {
    text += " size = " + std::to_string(m_data_size) + ", hash = " + m_data_hash.str();
  }
  return ustring(text + PrivilegeText(*this));
}

}  // namespace tolven
