#include "server/store/write-queue.h"

namespace tolven::server {

bool WriteQueue::Run(const Change& change) {
  Waiter own{change};
  mutex_.lock();
  waiting_.push_back(&own);
  while (busy_ && !own.done) ended_.Wait(mutex_);
  if (!own.done) {
    busy_ = true;
    std::deque<Waiter*> batch;
    batch.swap(waiting_);
    mutex_.unlock();
    RunBatch(batch);
    mutex_.lock();
    for (Waiter* const waiter : batch) waiter->done = true;
    busy_ = false;
    ended_.NotifyAll();
  }
  mutex_.unlock();
  return own.kept;
}

void WriteQueue::RunBatch(std::deque<Waiter*>& batch) {
  bool durable = Step("BEGIN IMMEDIATE;");
  if (batch.size() == 1) {  // the transaction serves as its savepoint
    batch.front()->kept = durable = durable && batch.front()->change(db_);
  } else {
    for (Waiter* const waiter : batch) waiter->kept = durable && RunOne(*waiter);
  }
  durable = durable && db_.InTransaction() && Step("COMMIT;");
  if (durable) return;
  if (db_.InTransaction()) (void)db_.Execute("ROLLBACK;");
  for (Waiter* const waiter : batch) waiter->kept = false;
}

bool WriteQueue::Step(const char* statement) { return db_.Prepare(statement).Run(); }

bool WriteQueue::RunOne(Waiter& waiter) {
  // Outside of the batch's transaction a savepoint would commit by itself.
  if (!db_.InTransaction() || !Step("SAVEPOINT one;")) return false;
  const bool stands = waiter.change(db_);
  if (!stands) (void)Step("ROLLBACK TO one;");
  return Step("RELEASE one;") && stands;
}

}  // namespace tolven::server
