// Makes events out of other things and hands them to the event manager: out of what a server tells,
// out of a change that a filter held back, out of a bare path. Any thread may call, and the session
// must have its database.
#pragma once

#include <cstdint>

#include "client/core/registry.h"
#include "client/filtered-event.h"
#include "protocol/object.h"
#include "ustring/ustring.h"

namespace tolven {

// One item of a server's list of changes (see server-record.h). 1: queued. 0: the client's own
// change has come back, nothing is to be done. 2: the same for a removal of what is not known here.
// -1: the record is malformed or names a place outside the session; it was logged and dropped.
int PushEvent(Registry::Entry& entry, const PObject& record);

// A parked change goes back into circulation; a local removal that a filter held back becomes a
// download. 0 for a server's change, else 1.
int PushEvent(Registry::Entry& entry, const FilteredEvent& filtered);

// All of the following give 1.
int PushServerRemoveEvent(Registry::Entry& entry, const ustring& path, bool is_dir,
                          std::uint64_t sync_id, std::uint64_t max_id);
int PushLocalRemoveEvent(Registry::Entry& entry, const ustring& path, bool is_dir);
int PushUploadEvent(Registry::Entry& entry, const ustring& path, bool is_dir);
// Fetches what the server has, whatever the versions say. What is known of it goes along.
int PushDownloadEvent(Registry::Entry& entry, const ustring& path, bool is_dir);
// A removal of a folder that cannot be done as a whole is taken apart into its members. The order
// for that travels as an event of the other side than the removal's.
int PushExpandLocalDeleteEvent(Registry::Entry& entry, const ustring& path, bool is_dir,
                               std::uint64_t sync_id, std::uint64_t max_id);
int PushExpandServerDeleteEvent(Registry::Entry& entry, const ustring& path, bool is_dir,
                                std::uint64_t sync_id, std::uint64_t max_id);

// The change number of a forced download; no server uses it.
inline constexpr std::uint64_t kForcedDownload = 0x7FFFFFFFFFFFFFFF;

}  // namespace tolven
