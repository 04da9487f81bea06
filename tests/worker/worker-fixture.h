// Workers on an event manager of their own, with one handler whose work the test gives.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "client/core/connection-manager.h"
#include "client/core/worker.h"
#include "client/file-event-db.h"
#include "support/temp-folder.h"

namespace tolven::test {

// Polls until `holds`, for a minute at most.
inline bool Await(const std::function<bool()>& holds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

class WorkerFixture : public testing::Test {
 public:
  using Work = std::function<int(EventHandler&)>;

 protected:
  class Handler : public EventHandler {
   public:
    explicit Handler(WorkerFixture& test) : test_(test) {}
    int Handle() override { return test_.work_(*this); }
    bool FilterEvent() override { return true; }

   private:
    WorkerFixture& test_;
  };

  WorkerFixture() {
    EXPECT_EQ(FileStatusDB::initialize(folder_ / "fstat"), 0);
    ConnectionInfo info;
    info.conn_id = 4;
    ConnectionManager::getInstance().add(info, nullptr, nullptr);
    for (std::uint64_t session = 1; session <= 3; ++session) AddSession(session);
  }
  ~WorkerFixture() override {
    StopAll();
    Registry::getInstance().Clear();
    ConnectionManager::getInstance().clear();
    FileStatusDB::destroy();
  }

  void AddSession(std::uint64_t session, std::uint64_t connection = 4) {
    Registry::Entry entry;
    entry.sess_id = session;
    entry.conn_id = connection;
    entry.local_path = "/r" + std::to_string(session);
    entry.event_db = std::make_shared<FileEventDB>();
    EXPECT_EQ(entry.event_db->initialize(folder_ / DatabaseOf(session)), 0);
    Registry::getInstance().Set(entry);
  }
  static std::string DatabaseOf(std::uint64_t session) { return "db" + std::to_string(session); }
  static Event Make(std::uint64_t session, const ustring& path, Event::Type type = Event::EV_CREATE,
                    std::uint32_t mode = 0) {
    Event event;
    event.m_sess_id = session;
    event.m_path = path;
    event.m_type = type;
    event.m_mode = mode;
    event.m_sync_id = (mode & Event::F_SERVER) != 0 ? 5 : 0;
    return event;
  }

  Worker& Start() {
    workers_.push_back(std::make_unique<Worker>(
        [this](EventDispatcher& dispatcher) {
          for (const auto type : {Event::EV_CREATE, Event::EV_MODIFY, Event::EV_REMOVE}) {
            dispatcher.Add(type, std::make_unique<Handler>(*this));
          }
        },
        manager_));
    EXPECT_EQ(workers_.back()->Run(), 0);
    return *workers_.back();
  }
  void StopAll() {
    for (const auto& worker : workers_) worker->Stop();
    for (const auto& worker : workers_) worker->Join();
    workers_.clear();
  }
  bool AwaitDone(std::uint64_t session) {
    return Await([&] { return manager_.GetAllPendingEventCount(session) == 0; });
  }

  TempFolder folder_;
  EventManager manager_{[](std::uint64_t session, ustring& path) {
    path = "/r" + std::to_string(session);
    return 1;
  }};
  Work work_ = [](EventHandler&) { return 0; };
  std::vector<std::unique_ptr<Worker>> workers_;
};

}  // namespace tolven::test
