// Which event leaves the tree next.
#pragma once

#include <string_view>

#include "client/event-tree.h"
#include "client/event.h"

namespace tolven {

struct NodeKinds {
  bool dirs;
  bool files;
};

// The first event that may go: the root's before all; then, going down from the root, the files of
// a directory before its sub-directories, and of those the first that is not held up. A
// sub-directory without an event of its own is entered for good: its later neighbours starve until
// it has made way. 0, or -1 when nothing may go.
int HandOutNext(EventTree& tree, Event& out);

// What was merged onto `path` while a worker had it. 0, or -1 when nothing was.
int HandOutRetry(EventTree& tree, std::string_view path, NodeKinds kinds, Event& out);

}  // namespace tolven
