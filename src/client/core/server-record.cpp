#include "client/core/server-record.h"

#include <concepts>
#include <cstdint>
#include <limits>
#include <string_view>

#include "client/core/event-generator.h"
#include "client/event-path.h"
#include "lib/file-op.h"

namespace tolven {

namespace {

// A wire integer has no sign: what is negative arrives above the limit.
constexpr std::uint64_t kMaxSize = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kMaxNumber = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMaxChange = kForcedDownload - 1;

// Reads the members of one map and remembers the first thing that is wrong.
class MapReader {
 public:
  explicit MapReader(const PObject& map, const char* error = nullptr) : map_(map), error_(error) {
    if (!map.isMap() && !map.isNull()) Fail("a section is no map");
  }

  // A member that has to be there.
  template <std::integral T>
  void Need(std::string_view key, std::uint64_t limit, T& out) {
    if (!map_.hasMember(key)) return Fail("a member is missing");
    Get(key, limit, out);
  }
  template <std::integral T>
  void Get(std::string_view key, std::uint64_t limit, T& out) {
    if (!map_.hasMember(key)) return;
    const PObject& value = map_[key];
    if (!value.isInteger()) return Fail("a number is of another type");
    if (value.asUInt64() > limit) return Fail("a number is out of range");
    out = static_cast<T>(value.asUInt64());
  }
  void Get(std::string_view key, ustring& out) {
    if (!map_.hasMember(key)) return;
    if (!map_[key].isString()) return Fail("a text is of another type");
    out = map_[key].asString();
  }
  // A map in this map; a missing one tells nothing.
  template <class Read>
  void Section(std::string_view key, Read read) {
    MapReader section(map_[key], error_);
    read(section);
    error_ = section.error_;
  }

  const char* error() const { return error_; }

 private:
  void Fail(const char* error) {
    if (error_ == nullptr) error_ = error;
  }

  const PObject& map_;
  const char* error_;
};

void ReadHead(MapReader& reader, Event& event) {
  bool is_dir = false, is_removed = false;
  reader.Need("is_dir", 1, is_dir);
  reader.Need("is_removed", 1, is_removed);
  event.m_path.clear();
  reader.Get("path", event.m_path);
  reader.Need("sync_id", kMaxChange, event.m_sync_id);
  reader.Need("max_id", kMaxChange, event.m_max_id);
  event.m_mode = Event::F_SERVER;
  if (is_dir) event.setDir();
  event.m_type = is_removed ? Event::EV_REMOVE : Event::EV_CREATE;
}

void ReadContent(MapReader& reader, Event& event) {
  reader.Section("file", [&](MapReader& file) {
    file.Get("hash", event.m_data_hash);
    file.Get("size", kMaxSize, event.m_data_size);
  });
  reader.Section("mtime", [&](MapReader& mtime) { mtime.Get("mtime", kMaxNumber, event.m_time); });
  reader.Section("mac_attribute", [&](MapReader& attribute) {
    attribute.Get("hash", event.m_mac_attr_hash);
    attribute.Get("size", kMaxSize, event.m_mac_attr_size);
  });
  reader.Section("exec_bit",
                 [&](MapReader& bit) { bit.Get("exec_bit", kMaxNumber, event.m_exec_bit); });
}

void ReadPrivileges(MapReader& reader, Event::PrivilegeAttr& privilege) {
  reader.Section("unix_perm", [&](MapReader& perm) {
    perm.Get("uid", kMaxNumber, privilege.unix_mode.uid);
    perm.Get("gid", kMaxNumber, privilege.unix_mode.gid);
    perm.Get("mode", kMaxNumber, privilege.unix_mode.mode);
  });
  reader.Section("zentrova_acl", [&](MapReader& acl) {
    acl.Get("acl", privilege.zent_acl.zent_acl);
    acl.Get("hash", privilege.zent_acl.zent_acl_hash);
  });
  reader.Section("share_priv", [&](MapReader& share) {
    share.Get("disabled", kMaxNumber, privilege.share_priv.share_priv_disabled);
    share.Get("deny_list", privilege.share_priv.share_priv_deny_list);
    share.Get("ro_list", privilege.share_priv.share_priv_ro_list);
    share.Get("rw_list", privilege.share_priv.share_priv_rw_list);
    share.Get("hash", privilege.share_priv.share_priv_hash);
  });
}

}  // namespace

const char* ReadServerRecord(const PObject& record, bool ignore_case, Event& event) {
  if (!record.isMap()) return "it is no map";
  MapReader reader(record);
  ReadHead(reader, event);
  ReadContent(reader, event);
  ReadPrivileges(reader, event.m_privilege);
  if (reader.error() != nullptr) return reader.error();
  if (!IsReceivedPath(event.m_path, ignore_case)) return "the path is not one of the session";
  if (event.m_path.view() != "/") return nullptr;
  if (event.m_type == Event::EV_REMOVE) return "the root is never removed";
  return event.isDir() ? nullptr : "the root is a folder";
}

bool LeadsThroughLink(const ustring& local_path, const ustring& path) {
  const std::string_view text = path.view();
  for (std::size_t end = text.find('/', 1); end != std::string_view::npos;
       end = text.find('/', end + 1)) {
    FILE_INFO info;
    if (FSStat(JoinPath(local_path, text.substr(0, end)), info, false) < 0) return false;
    if (info.isExist && info.type == FT_SLINK) return true;
    if (!info.isExist || info.type != FT_DIR) return false;
  }
  return false;
}

void FillFromServerView(const DBFileInfo& known, Event& event) {
  if (known.IsDir() == event.isDir()) {
    event.m_data_size = known.fileSize;
    event.m_data_hash = known.fileCheckSum;
    event.m_time = known.fileModTime;
    event.m_mac_attr_hash = known.macHash;
  }
  event.m_exec_bit = known.serverExecBit;
  Event::PrivilegeAttr& privilege = event.m_privilege;
  privilege.unix_mode.uid = known.serverUnixUid;
  privilege.unix_mode.gid = known.serverUnixGid;
  privilege.unix_mode.mode = known.serverUnixMode;
  privilege.zent_acl.zent_acl = known.serverAclAttribute;
  privilege.zent_acl.zent_acl_hash = known.serverAclHash;
  privilege.share_priv.share_priv_disabled =
      static_cast<std::int32_t>(known.serverSharePrivDisabled);
  privilege.share_priv.share_priv_deny_list = known.serverSharePrivDenyList;
  privilege.share_priv.share_priv_ro_list = known.serverSharePrivRoList;
  privilege.share_priv.share_priv_rw_list = known.serverSharePrivRwList;
  privilege.share_priv.share_priv_hash = known.serverSharePrivHash;
}

}  // namespace tolven
