// Takes a removal that was made here, of a folder that exists all the same, apart into what became
// of its members, one level deep.
#pragma once

#include "client/core/event-context.h"
#include "client/core/event-handler.h"
#include "client/file-list.h"

namespace tolven {

class ExpandLocalDeleteHandler : public EventHandler {
 public:
  int Handle() override;
  bool FilterEvent() override;

 private:
  // What is on disk: 0, or -1 when it cannot be read or the abort flag is set.
  int BuildLocalFileListWithoutResursive(const ustring& path, FileList& list);
  void LookBelow(const ustring& folder);
};

}  // namespace tolven
