// A force-hash-check list shared by threads. Every operation may be called from any thread and
// takes the object's lock.
#pragma once

#include "filter/force-hash-check-list.h"
#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class ForceHashCheckListCpp {
 public:
  // Replaces the list by that of a file: 0, or -1 and an empty list.
  int Load(const ustring& path);
  void Clear();
  // 1 when the name's extension is in the list, 0 when not, -1 for an empty name.
  int Test(const ustring& name) const;

 private:
  mutable Mutex lock;
  ForceHashCheckList list GUARDED_BY(lock);
};

}  // namespace tolven
