// The records in which a server tells its changes. A record is a map:
//
//   "path" text, "is_dir", "is_removed", "sync_id", "max_id" numbers; these have to be there
//   "file" {"hash" text, "size"}, "mtime" {"mtime"}, "mac_attribute" {"hash" text, "size"},
//   "exec_bit" {"exec_bit"}, "unix_perm" {"uid", "gid", "mode"}, "zentrova_acl" {"acl", "hash"
//   texts}, "share_priv" {"disabled"; "deny_list", "ro_list", "rw_list", "hash" texts}
//
// What a record does not tell has not changed. Nothing in it is trusted.
#pragma once

#include "client/core/registry.h"
#include "client/db-file-info.h"
#include "client/event.h"
#include "protocol/object.h"

namespace tolven {

// Fills `event`, but for its session. What is absent from the record leaves its field as it was.
// Null, or what is wrong with the record; `event` is then of no use. `ignore_case`: see
// IsReceivedPath.
const char* ReadServerRecord(const PObject& record, bool ignore_case, Event& event);

// Whether a folder above `path`, below the session's root, is a link or a junction: what is written
// to such a path lands somewhere else.
bool LeadsThroughLink(const ustring& local_path, const ustring& path);

// Takes what the server has, as the database remembers it, into an event. The content of an object
// of the other kind is left out.
void FillFromServerView(const DBFileInfo& known, Event& event);

}  // namespace tolven
