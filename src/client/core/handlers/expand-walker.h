// What a walk of a folder does when the folder is to be uploaded: an event for each file and
// folder.
#pragma once

#include <cstddef>

#include "client/core/registry.h"
#include "lib/file-op.h"
#include "ustring/ustring.h"

namespace tolven {

class ExpandWalker {
 public:
  ExpandWalker(Registry::Entry session, int worker);

  // `path` is the entry's full one. Always true: the walk goes on.
  bool operator()(const DIR_ENTRY& entry, const ustring& path);

 private:
  Registry::Entry reg;
  std::size_t root_len;  // of the session's folder, cut off each path
  int worker_id;
};

}  // namespace tolven
