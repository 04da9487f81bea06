// The task that empties the recycle bins: it goes round the sessions and removes what has lain in a
// bin for 30 minutes, from disk and database. Messages go to "recycle_cleaner_debug".
#pragma once

#include <atomic>

#include "client/core/registry.h"
#include "client/core/task.h"
#include "ustring/ustring.h"

namespace tolven {

class RecycleCleaner : public Task {
 public:
  int Pause() override;
  int Resume() override;
  int Stop() override;
  void DoTask() override;

 private:
  friend struct RecycleCleanerPeer;  // lets tests take single steps

  struct Context {
    Registry::Entry entry;  // the session visited last
    void clear();
  };

  // Takes the next session in hand: 0, or -1 when there is none.
  int UpdateContext();
  // Removes what is due in the bin of the session in hand: 0 or -1. An item that cannot be removed
  // keeps its whole batch, so that rows and files stay together.
  int Rotate();
  ustring GetRecycleBinDir() const;

  Context context;
  std::atomic<int> abort_flag{0};  // leave off between two items
};

}  // namespace tolven
