// A push that is planned: what a comparison found out, to be done once the whole plan stands.
#pragma once

#include <utility>

#include "client/core/registry.h"
#include "lib/shared-pointer.h"
#include "ustring/ustring.h"

namespace tolven {

struct EventRecord {
  enum event_type { UPLOAD_LOCAL = 0, REMOVE_REMOTE = 1, DOWNLOAD_REMOTE = 2 };

  EventRecord(shared_pointer<Registry::Entry> session, ustring event_path, bool directory,
              event_type what)
      : entry(std::move(session)), path(std::move(event_path)), is_dir(directory), type(what) {}

  // Hands the event to the event manager.
  void Push() const;

  shared_pointer<Registry::Entry> entry;  // one copy for all records of a plan
  ustring path;
  bool is_dir;
  event_type type;
};

}  // namespace tolven
