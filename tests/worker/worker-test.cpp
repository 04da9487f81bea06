#include <atomic>
#include <map>

#include "client/core/settings.h"
#include "lib/ui-report-queue.h"
#include "platform/fake-clock.h"
#include "support/local-ui.h"
#include "worker/worker-fixture.h"

namespace tolven {
namespace {

using test::Await;

int StatusOf(const char* path) {
  FileStatusInfo info;
  return FileStatusDB::getFileSyncStat(path, &info) == 1 ? info.syncStatus : -1;
}

class WorkerTest : public test::WorkerFixture {
 protected:
  WorkerTest() : before_(platform::SetClock(&clock_)) {}
  ~WorkerTest() override {
    StopAll();
    platform::SetClock(before_);
  }
  // Lets the handler give these results in turn and then 0; the seconds between its calls.
  std::string Pauses(std::vector<int> results, std::uint32_t mode = 0) {
    std::size_t call = 0;
    std::int64_t last = 0;
    std::string pauses;
    work_ = [&](EventHandler&) {
      if (call > 0) pauses += std::to_string(clock_.WallSeconds() - last);
      last = clock_.WallSeconds();
      return call < results.size() ? results[call++] : 0;
    };
    manager_.PushLocalEvent(Make(1, "/a", Event::EV_MODIFY, mode));
    Start();
    EXPECT_TRUE(AwaitDone(1));
    StopAll();
    return pauses;
  }

  platform::FakeClock clock_;
  platform::Clock* const before_;
};

// Three seconds before the same worker tries again, two after the event went back; nothing when it
// was done.
TEST_F(WorkerTest, SettlesEventsByTheResult) {
  std::string pauses;
  for (int err = 1; err >= -34; --err) {
    const std::string pause = Pauses({err});
    pauses += pause.empty() ? "-" : pause;
  }
  EXPECT_EQ(pauses,
            "3-"  // 1 and 0, then five errors a line
            "23333"
            "23332"
            "33332"
            "23222"
            "3223-"
            "-3233"
            "-3-3");
  // The fourth system error gives the event back, and its count starts anew.
  EXPECT_EQ(Pauses({-3, -3, -3, -3, -3, -3, -3, -3}), "33323332");
  EXPECT_EQ(Pauses({-3, -2, -3, -2, -3, -2, -2}), "3333333");

  EXPECT_EQ(manager_.GetUnappliedServerEventCount(1), 0U);
  Pauses({-25}, Event::F_REPLACED_SERVER_EVENT);
  EXPECT_EQ(manager_.GetUnappliedServerEventCount(1), 1U);
}

TEST_F(WorkerTest, WaitsWhileItIsNotToldWhatIsKnownOfAPath) {
  Registry::Entry entry;
  Registry::getInstance().Find(1, entry);
  entry.event_db->destroy();
  std::atomic<int> handled{0};
  work_ = [&](EventHandler&) {
    ++handled;
    return 0;
  };
  const Worker& worker = Start();
  manager_.PushLocalEvent(Make(1, "/a"));
  ASSERT_TRUE(Await([&] { return worker.GetWorkerStatus().GetErrorCount() == 1; }));
  EXPECT_EQ(handled, 0);
  ASSERT_EQ(entry.event_db->initialize(folder_ / DatabaseOf(1)), 0);
  EXPECT_TRUE(AwaitDone(1));
  EXPECT_EQ(handled, 1);
}

TEST_F(WorkerTest, TellsTheUiAndTheStatusDatabase) {
  test::LocalUi ui(26'000);
  test::WriteFile(folder_ / "conf", "ui_port = " + std::to_string(ui.port()));
  Settings::getInstance().loadConfigSettings(folder_ / "conf");
  UiReportQueue::getInstance().Start();
  // A refused change brings along what was already held back below it.
  Registry::Entry entry;
  Registry::getInstance().Find(1, entry);
  FilteredEvent parked;
  parked.is_server = parked.is_exist = true;
  parked.path = "/d/below";
  parked.name = "below";
  ASSERT_EQ(entry.event_db->setServerFilteredEvent(parked), 0);

  const std::map<std::string, int> results = {{"/auth", -6}, {"/full", -15}, {"/locked", -23},
                                              {"/ro", -25},  {"/d", -31},    {"/ok", 0}};
  std::map<std::string, int> calls;
  work_ = [&](EventHandler& handler) {
    const std::string path = handler.GetContext().GetPath().str();
    if (path == "/ok") handler.SetUINotification(UI_NOTIFY_CLIENT_REMOVE);
    return calls[path]++ == 0 ? results.at(path) : 0;
  };
  Worker& worker = Start();
  std::string told;
  manager_.PushLocalEvent(Make(3, "/ok"));
  while (ui.Receive()["session_id"].asUInt64() != 3) continue;  // what came earlier
  for (const auto& [path, result] : results) {
    manager_.PushLocalEvent(Make(1, ustring(path), Event::EV_MODIFY, path == "/d" ? 1U : 0U));
    ASSERT_TRUE(AwaitDone(1));
  }
  ASSERT_TRUE(Await([&] { return worker.GetWorkerStatus().session_id == 0; }));
  manager_.PushLocalEvent(Make(2, "/ok"));
  for (PObject message = ui.Receive(); message["session_id"].asUInt64() != 2;
       message = ui.Receive()) {
    const ustring notify = message["notify"].asString();
    if (notify == "syncing_file" || message["session_id"].asUInt64() == 3) continue;
    told += notify.str() + " " + message["path"].asString().str();
    told += message.hasMember("connection_id") ? "connection" : "";
    const int error = notify == "locked_file" ? message["error"]["code"].asInt32()
                                              : message["error_type"].asInt32();
    told += " " + std::to_string(error) + "\n";
    EXPECT_TRUE(message["event_type"].asInt32() == (notify == "recent_file" ? 2 : 0)) << told;
    EXPECT_EQ(message["is_dir"].asInt32(), notify == "no_perm_file" ? 1 : 0);
  }
  UiReportQueue::getInstance().Stop(std::chrono::milliseconds(0));
  EXPECT_EQ(told,
            "error connection -6\nno_perm_file /d 0\nerror  -15\nlocked_file /locked -23\n"
            "recent_file /ok 0\nerror  -25\nreadonly_file /ro 0\n");
  EXPECT_EQ(StatusOf("\\r1\\ro"), FSTAT_READ_ONLY);
  EXPECT_EQ(StatusOf("\\r1\\d"), FSTAT_NO_PERM);
  EXPECT_EQ(StatusOf("\\r1\\d\\below"), FSTAT_NO_PERM);
  EXPECT_EQ(StatusOf("\\r1\\ok"), -1);
}

TEST_F(WorkerTest, GoesOnWithWhatArrivedMeanwhile) {
  std::string seen;
  work_ = [&](EventHandler& handler) {
    const Event event = handler.GetContext().GetEvent();
    seen += event.isServerEvent() ? "S" : "L";
    if (seen.size() == 1) manager_.PushServerEvent(Make(1, "/a", Event::EV_REMOVE));
    return 0;
  };
  manager_.PushServerEvent(Make(1, "/a"));
  Start();
  ASSERT_TRUE(AwaitDone(1));
  EXPECT_EQ(seen, "SS");
}

TEST_F(WorkerTest, ASessionThatWaitsHoldsUpNoOther) {
  Task busy;
  Event event;
  manager_.PushLocalEvent(Make(1, "/long"));
  ASSERT_EQ(manager_.PullEvent(&busy, event), 0);
  for (int i = 0; i < 90; ++i) manager_.PushLocalEvent(Make(2, "/" + std::to_string(i)));
  const auto begin = std::chrono::steady_clock::now();
  Start();
  ASSERT_TRUE(AwaitDone(2));
  // A second's sleep at each turn of the other would be 90.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(45));
}

// What nobody can apply any more is ended, with all that arrived on its path, and counted.
TEST_F(WorkerTest, DropsEventsOfRemovedSessions) {
  work_ = [&](EventHandler&) {
    manager_.PushServerEvent(Make(1, "/a", Event::EV_REMOVE));
    Registry::getInstance().Remove(1);
    return -2;
  };
  manager_.PushServerEvent(Make(1, "/a"));
  AddSession(2, 99);
  manager_.PushServerEvent(Make(2, "/a"));
  manager_.PushLocalEvent(Make(2, "/b"));
  Worker& worker = Start();
  ASSERT_TRUE(AwaitDone(1));
  ASSERT_TRUE(AwaitDone(2));
  EXPECT_EQ(manager_.GetUnappliedServerEventCount(1), 2U);
  EXPECT_EQ(manager_.GetUnappliedServerEventCount(2), 1U);
  ASSERT_TRUE(Await([&] { return StatusOf("\\r2\\b") == -1; }));
  EXPECT_EQ(worker.GetWorkerStatus().session_id, 0U);
}

class Recorder : public EventFilter {
 public:
  Recorder(std::string& log, char name, bool accepts) : log_(log), name_(name), accepts_(accepts) {}
  int Handle() override { return log_ += '!', -static_cast<int>(name_ - 'a'); }
  bool FilterEvent() override { return log_ += name_, accepts_; }

 private:
  std::string& log_;
  const char name_;
  const bool accepts_;
};

TEST_F(WorkerTest, AsksFiltersAndThenHandlersInOrder) {
  Worker& worker = *workers_.emplace_back(std::make_unique<Worker>(nullptr, manager_));
  WorkerController controller(&worker);
  EventContext context;
  std::string log;
  EventDispatcher dispatcher;
  const auto dispatch = [&](Event::Type type) {
    log.clear();
    context.SetEvent(Make(1, "/a", type));
    return dispatcher.Dispatch(context, controller);
  };
  for (const char name : {'b', 'c', 'd'}) {
    dispatcher.Add(Event::EV_CREATE, std::make_unique<Recorder>(log, name, name != 'b'));
  }
  dispatcher.AddFilter(std::make_unique<Recorder>(log, 'x', false));
  EXPECT_EQ(dispatch(Event::EV_CREATE), -2);
  EXPECT_EQ(log, "xbc!");
  EXPECT_EQ(dispatch(Event::EV_RENAME), -1);
  EXPECT_EQ(log, "x");
  dispatcher.AddFilter(std::make_unique<Recorder>(log, 'y', true));
  EXPECT_EQ(dispatch(Event::EV_CREATE), 0);
  EXPECT_EQ(log, "xy");
}

}  // namespace
}  // namespace tolven
