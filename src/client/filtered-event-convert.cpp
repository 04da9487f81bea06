// Between pending events and those that a filter held back.

#include "client/event-db-functions.h"
#include "client/file-event-db.h"

namespace tolven {

FilteredEvent FileEventDB::ToFilteredEvent(const Event& event, FilteredEvent::FilterType type) {
  const Event::PrivilegeAttr& privilege = event.m_privilege;
  FilteredEvent filtered;
  filtered.is_server = event.isServerEvent();
  filtered.is_exist = event.m_type != Event::EV_REMOVE;
  filtered.filter_type = type;
  filtered.sync_id = event.m_sync_id;
  filtered.max_sync_id = event.m_max_id;
  filtered.path = event.m_path;
  filtered.name = ustring(event_db::BaseName(event.m_path.view()));
  filtered.file_type = event.isDir() ? 1 : 0;
  filtered.file_size = event.m_data_size;
  filtered.file_hash = event.m_data_hash;
  filtered.m_time = event.m_time;
  filtered.mac_hash = event.m_mac_attr_hash;
  filtered.exec_bit = event.m_exec_bit;
  filtered.unix_uid = privilege.unix_mode.uid;
  filtered.unix_gid = privilege.unix_mode.gid;
  filtered.unix_mode = privilege.unix_mode.mode;
  filtered.acl_attribute = privilege.zent_acl.zent_acl;
  filtered.acl_hash = privilege.zent_acl.zent_acl_hash;
  filtered.share_priv_disabled =
      static_cast<std::uint32_t>(privilege.share_priv.share_priv_disabled);
  filtered.share_priv_deny_list = privilege.share_priv.share_priv_deny_list;
  filtered.share_priv_ro_list = privilege.share_priv.share_priv_ro_list;
  filtered.share_priv_rw_list = privilege.share_priv.share_priv_rw_list;
  filtered.share_priv_hash = privilege.share_priv.share_priv_hash;
  return filtered;
}

Event FileEventDB::ToEvent(const FilteredEvent& filtered, std::uint64_t sessId) {
  Event event;
  event.m_type = filtered.is_exist ? Event::EV_MODIFY : Event::EV_REMOVE;
  if (filtered.is_server) event.setServerEvent();
  if (filtered.IsDir()) event.setDir();
  event.m_sess_id = sessId;
  event.m_sync_id = filtered.sync_id;
  event.m_max_id = filtered.max_sync_id;
  event.m_path = filtered.path;
  event.m_data_size = filtered.file_size;
  event.m_data_hash = filtered.file_hash;
  event.m_time = filtered.m_time;
  event.m_mac_attr_hash = filtered.mac_hash;
  event.m_exec_bit = filtered.exec_bit;
  Event::PrivilegeAttr& privilege = event.m_privilege;
  privilege.unix_mode.uid = filtered.unix_uid;
  privilege.unix_mode.gid = filtered.unix_gid;
  privilege.unix_mode.mode = filtered.unix_mode;
  privilege.zent_acl.zent_acl = filtered.acl_attribute;
  privilege.zent_acl.zent_acl_hash = filtered.acl_hash;
  privilege.share_priv.share_priv_disabled =
      static_cast<std::int32_t>(filtered.share_priv_disabled);
  privilege.share_priv.share_priv_deny_list = filtered.share_priv_deny_list;
  privilege.share_priv.share_priv_ro_list = filtered.share_priv_ro_list;
  privilege.share_priv.share_priv_rw_list = filtered.share_priv_rw_list;
  privilege.share_priv.share_priv_hash = filtered.share_priv_hash;
  return event;
}

}  // namespace tolven
