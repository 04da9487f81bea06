// A white list shared by threads. Every operation may be called from any thread and takes the
// object's lock, except where told otherwise.
#pragma once

#include "filter/white-list.h"
#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class WhiteListCpp {
 public:
  // Replaces the list by that of a file: 0, or -1 and an empty list.
  int Load(const ustring& path);
  void Clear();
  // 0 when the name's extension is in the list, else -1.
  int Test(const ustring& name) const;

  // Takes no lock. REQUIRES: nobody loads or clears the list while the result is in use.
  const WhiteList* GetWhiteList() const NO_THREAD_SAFETY_ANALYSIS { return &list; }

 private:
  mutable Mutex lock;
  WhiteList list GUARDED_BY(lock);
};

}  // namespace tolven
