// What this side knows of the members that a folder has on the server. It has to know all of them
// before it takes the folder from there, be it by a removal or by a file in its place.
#pragma once

#include <cstdint>

namespace tolven {

class EventContext;
struct DBFileInfo;

struct FolderKnowledge {
  std::uint64_t max_id = 0;   // the number up to which it is known what is below
  bool is_behind = false;     // others may have changed something below that is yet to be pulled
  bool is_held_back = false;  // filters keep something below from this side

  // For the event's folder, whose record is `db_info`: 0, or -1 when the database does not tell.
  int Read(const EventContext& context, const DBFileInfo& db_info);
};

}  // namespace tolven
