#include "server/protocol/record.h"

#include "lib/utility.h"
#include "server/protocol/path-rule.h"

namespace tolven::server {

PObject ChangeRecord(const Node& node, std::string_view folder, std::uint32_t build) {
  PObject record;
  record["path"] = ustring(RelativeTo(folder, node.path));
  record["is_dir"] = node.is_dir;
  record["is_removed"] = node.is_removed;
  record["sync_id"] = node.sync_id;
  record["max_id"] = node.max_id;
  if (node.is_removed) return record;
  if (!node.is_dir) {
    record["file"]["hash"] = ustring(node.content.md4);
    record["file"]["size"] = node.content.size;
  }
  record["mtime"]["mtime"] = node.mtime;
  AddAttributes(node, build, record);
  return record;
}

void AddAttributes(const Node& node, std::uint32_t build, PObject& record) {
  record["exec_bit"]["exec_bit"] = node.exec_bit ? 1 : 0;
  record["unix_perm"]["uid"] = node.uid;
  record["unix_perm"]["gid"] = node.gid;
  record["unix_perm"]["mode"] = node.mode;
  if (build <= kLastBuildWithoutLists) return;
  record["zentrova_acl"]["acl"] = ustring(node.acl);
  record["zentrova_acl"]["hash"] = node.acl.empty() ? ustring() : HashMD5(node.acl);
}

}  // namespace tolven::server
