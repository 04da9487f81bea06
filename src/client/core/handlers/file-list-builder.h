// What a walk of a folder does when the folder is to be compared: everything goes into a list.
#pragma once

#include <cstddef>

#include "client/core/event-context.h"
#include "client/file-list.h"
#include "lib/file-op.h"
#include "ustring/ustring.h"

namespace tolven {

class FileListBuilder {
 public:
  // The list gets paths below `root`, a full path. `list` outlives the builder.
  FileListBuilder(const EventContext& context, const ustring& root, int worker, FileList& list);

  // `path` is the entry's full one. Always true: the walk goes on.
  bool operator()(const DIR_ENTRY& entry, const ustring& path);

 private:
  bool IsLeftOut(const DIR_ENTRY& entry, const ustring& path) const;
  void AddDirectory(const DIR_ENTRY& entry, const ustring& path);
  void AddFile(const DIR_ENTRY& entry, const ustring& path);

  const ustring old_recycle_bin_;  // full path
  const std::size_t root_length_;
  const int worker_id_;
  FileList& list_;
};

}  // namespace tolven
