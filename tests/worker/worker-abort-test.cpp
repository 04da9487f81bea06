// Workers that are interrupted, paused and stopped while they are in a handler.
#include <algorithm>
#include <atomic>

#include "worker/worker-fixture.h"

namespace tolven {
namespace {

using test::Await;

class Callback : public ErrorCallback {
 public:
  explicit Callback(std::atomic<int>& ran) : ran_(ran) {}
  void Exec(EventContext& context) override { ran_ += context.GetPath() == "/a" ? 1 : 100; }

 private:
  std::atomic<int>& ran_;
};

class WorkerAbortTest : public test::WorkerFixture {
 protected:
  WorkerAbortTest() {
    // A transfer that only an abort ends.
    work_ = [this](EventHandler& handler) {
      handler.SetWorkingType(W_TYPE_UPLOAD);
      handler.SetAbortable(true);
      ++entered_;
      while (handler.GetAbortFlag()->load() == 0) std::this_thread::yield();
      return -1;
    };
  }
  static AbortFilter Of(std::uint64_t session) {
    AbortFilter filter;
    filter.SetSession(session);
    return filter;
  }
  void Interrupt(const AbortFilter& filter) {
    const auto barrier = std::make_shared<Barrier>();
    for (const auto& worker : workers_) worker->SetAbort(filter, barrier);
    barrier->Wait();
  }

  std::atomic<int> entered_{0};
};

TEST_F(WorkerAbortTest, GivesTheEventBackBeforeTheBarrierOpens) {
  Worker& worker = Start();
  manager_.PushLocalEvent(Make(1, "/a"));
  ASSERT_TRUE(Await([&] { return worker.GetWorkerStatus().is_abortable; }));
  AbortFilter other_connection;
  other_connection.SetConnection(5);
  for (const AbortFilter& filter : {AbortFilter(), Of(2), other_connection}) Interrupt(filter);
  EXPECT_EQ(entered_, 1);

  std::uint64_t session = 0, sent = 1, total = 1;
  ustring path;
  WorkingType type = W_TYPE_NONE;
  worker.GetWorkingStatus(session, path, type, sent, total);
  EXPECT_TRUE(session == 1 && path == "/a" && type == W_TYPE_UPLOAD && sent + total == 0);
  worker.Pause();
  worker.GetWorkingStatus(session, path, type, sent, total);
  EXPECT_TRUE(session == 0 && path.empty() && type == W_TYPE_NONE);

  Interrupt(Of(1));
  EXPECT_FALSE(worker.GetWorkerStatus().is_abortable);
  Event event;
  ASSERT_EQ(manager_.PullEvent(&worker, event), 0) << "the event waits again";
  EXPECT_EQ(manager_.RedoEvent(&worker, event), 0);
  worker.Resume();
  EXPECT_TRUE(Await([&] { return entered_ == 2; })) << "the abort flag is down again";
  // A handler that has just begun cannot lose a stop.
  StopAll();
}

TEST_F(WorkerAbortTest, AHandlersActionGoesBeforeTheTable) {
  std::atomic<int> ran{0};
  work_ = [&](EventHandler& handler) {
    ++entered_;
    handler.SetErrorAction(entered_ == 1 ? ACTION_RETURN_EVENT : ACTION_DONE,
                           std::make_unique<Callback>(ran));
    return -4;
  };
  Start();
  manager_.PushLocalEvent(Make(1, "/a"));
  EXPECT_TRUE(AwaitDone(1) && Await([&] { return ran == 2; }));
}

TEST_F(WorkerAbortTest, APushWakesIdleWorkers) {
  work_ = [](EventHandler&) { return 0; };
  for (int i = 0; i < 3; ++i) Start();
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) {
    manager_.PushLocalEvent(Make(1, ustring("/" + std::to_string(i))));
    ASSERT_TRUE(AwaitDone(1));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(WorkerAbortTest, SessionsAreRemovedUnderRunningHandlers) {
  const Work transfer = work_;
  std::atomic<bool> finish{false};
  work_ = [&](EventHandler& handler) { return finish ? 0 : transfer(handler); };
  for (int i = 0; i < 3; ++i) Start();
  for (int round = 0; round < 30; ++round) {
    for (std::uint64_t session = 1; session <= 3; ++session) {
      manager_.PushServerEvent(Make(session, "/a"));
      manager_.PushLocalEvent(Make(session, "/b"));
    }
    ASSERT_TRUE(Await([&] {
      return std::any_of(workers_.begin(), workers_.end(),
                         [](const auto& worker) { return worker->GetWorkerStatus().is_abortable; });
    }));
    const auto removed = static_cast<std::uint64_t>(round % 3 + 1);
    for (const auto& worker : workers_) worker->Pause();
    Interrupt(Of(removed));
    Registry::getInstance().Remove(removed);
    manager_.ClearSessionEventPool(removed);
    AddSession(removed);
    Interrupt(Of(0));
    for (const auto& worker : workers_) worker->Resume();
  }
  finish = true;
  for (std::uint64_t session = 1; session <= 3; ++session) {
    EXPECT_TRUE(Await([&] {
      Interrupt(Of(0));
      return manager_.GetAllPendingEventCount(session) == 0;
    })) << session;
  }
}

TEST_F(WorkerAbortTest, StopsAtAnyMoment) {
  manager_.PushLocalEvent(Make(1, "/a"));
  for (int round = 0; round < 200; ++round) {
    Worker& worker = Start();
    ASSERT_TRUE(Await([&] { return round % 2 == 0 || worker.GetWorkerStatus().is_abortable; }));
    if (round % 3 == 0) manager_.PushLocalEvent(Make(1, "/a", Event::EV_REMOVE));
    StopAll();
  }
}

}  // namespace
}  // namespace tolven
