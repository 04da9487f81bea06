// Lets changes of many threads share one commit: whoever comes first carries out all that wait,
// each in a savepoint of its own, and syncs once for all of them.
#pragma once

#include <deque>
#include <functional>

#include "platform/mutex.h"
#include "server/store/database.h"

namespace tolven::server {

class WriteQueue {
 public:
  // Whether the change is to stand.
  using Change = std::function<bool(Database& db)>;

  bool Open(const ustring& path) { return db_.Open(path); }

  // Returns when the change is durable, or has been taken back: whether it is durable. May be
  // called from any thread; the change may run in another one.
  bool Run(const Change& change) EXCLUDES(mutex_);

 private:
  struct Waiter {
    const Change& change;
    bool kept = false;  // its savepoint stands
    bool done = false;
  };

  void RunBatch(std::deque<Waiter*>& batch);
  bool RunOne(Waiter& waiter);
  bool Step(const char* statement);

  Mutex mutex_;
  CondVar ended_;
  std::deque<Waiter*> waiting_ GUARDED_BY(mutex_);
  bool busy_ GUARDED_BY(mutex_) = false;
  Database db_;  // belongs to the thread that carries out a batch
};

}  // namespace tolven::server
