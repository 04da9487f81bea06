#include "client/core/app.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "client/core/interruptible-task.h"
#include "daemon-home.h"
#include "lib/file-status-db.h"

namespace tolven {
namespace {

using testing::ElementsAre;

// What the tasks of a table were told, in order: "2 stop" and the like.
class Journal {
 public:
  void Add(std::size_t index, const char* what) {
    MutexLock lock(mutex_);
    lines_.push_back(std::to_string(index) + " " + what);
  }
  std::vector<std::string> Take() {
    MutexLock lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  Mutex mutex_;
  std::vector<std::string> lines_ GUARDED_BY(mutex_);
};

// A worker that lets go of its event, if the filter hits session 7, at its next look.
class RecordingTask : public InterruptibleTask {
 public:
  using InterruptibleTask::SetAbort;
  RecordingTask(Journal& journal, std::size_t index) : journal_(journal), index_(index) {}
  ~RecordingTask() override { journal_.Add(index_, "gone"); }

  int Pause() override { return Note("pause", Task::Pause()); }
  int Resume() override { return Note("resume", Task::Resume()); }
  int Stop() override {
    MutexLock lock(mutex_);
    cond_.NotifyAll();
    return Note("stop", Task::Stop());
  }
  void SetAbort(const AbortFilter& filter, const shared_pointer<Barrier>& barrier) override {
    Note("abort", 0);
    if (!filter.MatchSession(7) && !filter.MatchConnection(3)) return;
    barrier->Increase(GetId());
    MutexLock lock(mutex_);
    barrier_ = barrier;
    cond_.NotifyAll();
  }
  void GetWorkingStatus(std::uint64_t& session, ustring& path, WorkingType& type,
                        std::uint64_t& sent, std::uint64_t& total) override {
    session = 7;
    path = "/f" + std::to_string(index_);
    type = index_ == 5 ? W_TYPE_UPLOAD : index_ == 6 ? W_TYPE_DOWNLOAD : W_TYPE_NONE;
    sent = 1;
    total = 2;
  }
  void DoTask() override {
    MutexLock lock(mutex_);
    for (; GetState() != STOP; cond_.Wait(mutex_)) {
      if (barrier_ == nullptr) continue;
      Note("hit", 0);
      barrier_->Signal(GetId());
      barrier_.reset();
    }
  }

 private:
  int Note(const char* what, int result) {
    journal_.Add(index_, what);
    return result;
  }
  Journal& journal_;
  const std::size_t index_;
  Mutex mutex_;
  CondVar cond_;
  shared_pointer<Barrier> barrier_ GUARDED_BY(mutex_);
};

class App : public testing::Test {
 protected:
  App() { home.Load(); }

  PObject Do(PObject request) {
    PObject result;
    app.handle_control(request, result);
    return result;
  }
  static PObject Request(const char* action, std::initializer_list<const char*> keys = {},
                         int value = 0) {
    PObject request;
    request["action"] = action;
    for (const char* key : keys) request[key] = value;
    return request;
  }

  test::DaemonHome home{26'000, "worker_count = 4\n"};
  Journal journal;
  TolvenhubApp app{[this](std::size_t workers) {
    TaskTable table(TASK_WORKER + workers);
    for (std::size_t i = 0; i < table.size(); ++i) {
      table[i] = std::make_unique<RecordingTask>(journal, i);
    }
    return table;
  }};
};

TEST_F(App, StartsAndStopsItsTasksInOrder) {
  EXPECT_TRUE(Do(Request("link")).isNull());
  EXPECT_TRUE(journal.Take().empty());
  Do(Request("unlink"));
  std::vector<std::string> expected;
  for (const char* what : {" stop", " gone"}) {
    for (int i = 0; i < 8; ++i) expected.push_back(std::to_string(i) + what);
  }
  EXPECT_EQ(journal.Take(), expected);
  Do(Request("unlink"));
  EXPECT_TRUE(journal.Take().empty());

  // A second link ends the first, and states of files do not survive it.
  Do(Request("link"));
  EXPECT_EQ(FileStatusDB::setFileSyncStat({.path = "\\a"}), 0);
  Do(Request("link"));
  EXPECT_EQ(journal.Take(), expected);
  FileStatusInfo info;
  EXPECT_EQ(FileStatusDB::getFileSyncStat("\\a", &info), 0);
  Do(Request("stop"));
  EXPECT_EQ(journal.Take(), expected);
}

TEST_F(App, MakesPausesAndEndsAllTasksForWhoeverAsks) {
  ASSERT_EQ(app.init_members(), 0);
  app.pause_all();
  app.resume_all();
  app.destroy_members();
  std::vector<std::string> expected;
  for (const char* what : {" pause", " resume", " gone"}) {
    for (int i = 0; i < 8; ++i) expected.push_back(std::to_string(i) + what);
  }
  EXPECT_EQ(journal.Take(), expected);
}

TEST_F(App, PausesAndInterruptsAllWorkersButTheFirst) {
  Do(Request("link"));
  Do(Request("pause", {"session_id"}, 7));
  const auto calls = journal.Take();
  ASSERT_EQ(calls.size(), 12U);
  const auto at = [&](std::size_t first) {
    return std::vector<std::string>(calls.begin() + static_cast<std::ptrdiff_t>(first),
                                    calls.begin() + static_cast<std::ptrdiff_t>(first) + 3);
  };
  EXPECT_THAT(at(0), ElementsAre("5 pause", "6 pause", "7 pause"));
  std::vector<std::string> middle(calls.begin() + 3, calls.begin() + 9);
  EXPECT_THAT(middle, testing::UnorderedElementsAre("5 abort", "5 hit", "6 abort", "6 hit",
                                                    "7 abort", "7 hit"));
  EXPECT_THAT(at(9), ElementsAre("5 resume", "6 resume", "7 resume"));

  // Which of the verbs interrupt whom: 0 stands for all, no id for nobody.
  const struct {
    PObject request;
    std::size_t hits;
  } cases[] = {{Request("pause"), 0},
               {Request("pause", {"session_id", "connection_id"}, 4), 0},
               {Request("pause", {"connection_id"}, 3), 3},
               {Request("resume", {"session_id"}, 7), 0},
               {Request("reload_connection", {"connection_id"}, 3), 3},
               {Request("unlink_connection", {"connection_id"}, 3), 3},
               {Request("unlink_connection", {"connection_id"}, 4), 0},
               {Request("remove_session", {"session_id"}, 7), 3},
               {Request("remove_session", {"session_id"}, 0), 3}};
  for (const auto& [request, hits] : cases) {
    Do(request);
    std::size_t seen = 0;
    for (const std::string& line : journal.Take()) seen += line.ends_with("hit") ? 1U : 0U;
    EXPECT_EQ(seen, hits) << request.toString();
  }
  EXPECT_EQ(Do(Request("get_status"))["worker_list"].toString(),
            ustring(R"([{"path": "/f5", "progress": 1, "session_id": 7, "status": "uploading", )"
                    R"("total_size": 2}, {"path": "/f6", "progress": 1, "session_id": 7, )"
                    R"("status": "downloading", "total_size": 2}])"));
  Do(Request("unlink"));
}

TEST_F(App, TellsWhyItCannotBeLinked) {
  test::WriteFile(home.folder / "filter", "[Unknown]\nx = 1\n");
  EXPECT_EQ(Do(Request("link"))["error"].asString(), "Failed to initialize environment");
  EXPECT_EQ(Do(Request("pause"))["error"].asString(), "Daemon is not linked.");
  test::WriteFile(home.folder / "filter", "[Version]\nmajor = 1\nminor = 0\n");
  TolvenhubApp no_tasks([](std::size_t) { return TaskTable(); });
  PObject result;
  no_tasks.handle_control(Request("link"), result);
  EXPECT_EQ(result["error"].asString(), "Failed to initialize members");
  no_tasks.handle_control(Request("unlink"), result);
}

TEST_F(App, AnswersEverySenderAndLetsGoOfThoseBehindStop) {
  ASSERT_EQ(app.run(), 0);
  EXPECT_EQ(app.run(), -1);
  std::vector<std::future<std::string>> senders;
  for (int i = 0; i < 16; ++i) {
    senders.push_back(std::async(std::launch::async, [&, i] {
      PObject reply;
      app.send_message(Request(i == 9 ? "stop" : "get_status"), reply);
      return reply["ack"].asString().str();
    }));
  }
  int answered = 0;
  for (auto& sender : senders) answered += sender.get() == "ok" ? 1 : 0;
  EXPECT_GE(answered, 1);
  EXPECT_EQ(senders.size(), 16U);

  PObject reply;
  EXPECT_EQ(app.send_message(Request("get_status"), reply), 0);
  EXPECT_TRUE(reply.isNull());
  app.kill();
  ASSERT_EQ(app.run(), 0);
  app.send_message(Request("link"));
  app.kill();  // unlinks
  EXPECT_EQ(journal.Take().size(), 16U);
  app.kill();
}

}  // namespace
}  // namespace tolven
