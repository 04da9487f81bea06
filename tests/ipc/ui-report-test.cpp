#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "client/core/settings.h"
#include "lib/ipc-listener.h"
#include "lib/ipc-sender.h"
#include "lib/log.h"
#include "lib/ui-ipc.h"
#include "lib/ui-report-queue.h"
#include "support/local-ui.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

using std::chrono::milliseconds;

TEST(UiReportQueue, KeepsTheOrderAndDropsWhatIsTooMuch) {
  std::promise<void> entered, go_on;
  std::vector<int> delivered;
  UiReportQueue queue(3, [&](const PObject& report, std::atomic<int>*) {
    delivered.push_back(report.asInt32());
    if (report.asInt32() == 1) {
      entered.set_value();
      go_on.get_future().wait();
    }
  });
  EXPECT_EQ(queue.Post(1), 0);  // waits for the thread
  queue.Start();
  entered.get_future().wait();
  for (int i = 2; i <= 4; ++i) EXPECT_EQ(queue.Post(i), 0);
  EXPECT_EQ(queue.Post(5), -1);
  go_on.set_value();
  queue.Stop(std::chrono::minutes(1));
  EXPECT_EQ(queue.Post(6), -1);
  EXPECT_EQ(delivered, (std::vector<int>{1, 2, 3, 4}));
}

TEST(UiReportQueue, EndsAReportThatStalls) {
  test::LocalUi ui(23'000);  // listens and never reads
  std::promise<void> entered;
  int delivered = 0;
  UiReportQueue queue(3, [&](const PObject& report, std::atomic<int>* abort) {
    IPCSender sender;
    sender.setFlag(abort);
    PObject reply;
    EXPECT_EQ(sender.connect(ui.port()), 0);
    if (++delivered == 1) entered.set_value();
    EXPECT_EQ(sender.send(report, true, reply), -1);
  });
  queue.Start();
  queue.Post(1);
  queue.Post(2);
  entered.get_future().wait();
  queue.Stop(milliseconds(0));
  EXPECT_EQ(delivered, 1);
}

// One whose system takes no more connections, as it accepts none: the reports behind wait, those
// who report do not, and the end of the daemon does not wait for a time-out.
TEST(UiReportQueue, NeitherReportersNorTheEndWaitForAUiThatHangs) {
  test::TempFolder folder;
  test::LocalUi ui(23'500);
  test::WriteFile(folder / "conf", "ui_port = " + std::to_string(ui.port()));
  Settings::getInstance().loadConfigSettings(folder / "conf");
  constexpr int kReports = 2000;  // more than any backlog takes
  std::atomic<int> begun{0}, ended{0};
  UiReportQueue queue(kReports, [&](const PObject& report, std::atomic<int>* abort) {
    ++begun;
    UiReportQueue::DeliverToUi(report, abort);
    ++ended;
  });
  queue.Start();
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kReports; ++i) EXPECT_EQ(queue.Post(i), 0);
  // Until nothing has moved for a second.
  for (int last = -1; last != ended;) {
    last = ended;
    const auto seen = std::chrono::steady_clock::now();
    while (ended == last && std::chrono::steady_clock::now() - seen < std::chrono::seconds(1)) {
      std::this_thread::yield();
    }
  }
  EXPECT_LT(begun, kReports);
  queue.Stop(milliseconds(100));
  EXPECT_EQ(begun, ended);
  EXPECT_LT(begun, kReports);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(55));
}

TEST(UiIpc, ReportsInOrderWithTheKeysOfEachKind) {
  test::TempFolder folder;
  test::LocalUi ui(24'000);
  test::WriteFile(folder / "conf", "ui_port = " + std::to_string(ui.port()));
  Settings::getInstance().loadConfigSettings(folder / "conf");
  UiReportQueue::getInstance().Start();

  Event event;
  event.m_type = Event::EV_MODIFY;
  event.m_sess_id = 7;
  event.m_path = "/a/b";
  event.setDir();
  UI_IPC::ReportFileSyncingEventToUI(event);
  UI_IPC::ReportFileROToUI(event);
  UI_IPC::ReportFileNoPermToUI(event);
  UI_IPC::ReportFileEventToUI(event);
  UI_IPC::ReportFileLockedEventToUI(event, -23);
  UI_IPC::ReportSessionErrorToUI(5, 7, -29);
  UI_IPC::ReportConnectionErrorToUI(5, 7, -6);
  UI_IPC::LastBreath();

  const ustring path = R"("path": "/a/b", "session_id": 7})";
  for (const char* kind : {"syncing_file", "readonly_file", "no_perm_file", "recent_file"}) {
    EXPECT_EQ(ui.Receive().toString(),
              ustring(R"({"event_type": 3, "is_dir": 1, "notify": ")") + kind + R"(", )" + path);
  }
  const auto number = [](int value) {
    return std::to_string(static_cast<std::uint64_t>(std::int64_t{value}));
  };
  EXPECT_EQ(ui.Receive().toString(), ustring(R"({"error": {"code": )") + number(-23) +
                                         R"(, "reason": "file locked"}, "is_dir": 1, )" +
                                         R"("notify": "locked_file", )" + path);
  EXPECT_EQ(ui.Receive().toString(), ustring(R"({"conn_id": 5, "error_type": )") + number(-29) +
                                         R"(, "notify": "error", "sess_id": 7, "session_id": 7})");
  EXPECT_EQ(ui.Receive().toString(), ustring(R"({"conn_id": 5, "connection_id": 5, )") +
                                         R"("error_type": )" + number(-6) +
                                         R"(, "notify": "error", "sess_id": 7})");
  EXPECT_EQ(ui.Receive().toString(), ustring(R"({"action": "connection_terminate"})"));
  UiReportQueue::getInstance().Stop(std::chrono::minutes(1));
}

TEST(UiIpc, HearsAUiThatKeepsItsConnection) {
  IPCListener listener;
  IPCSender far;
  ASSERT_EQ(far.connect(listener.prepare(23'000)), 0);
  ASSERT_TRUE(listener.isReady());
  UI_IPC ui;
  ASSERT_EQ(ui.Open(listener.accept()), 0);
  PObject message;
  ASSERT_EQ(far.send(PObject("hello")), 0);
  EXPECT_EQ(ui.Recv(message), 0);
  EXPECT_EQ(message.asString(), "hello");
  ui.Destroy();
  EXPECT_LT(ui.Recv(message), 0);
}

TEST(UiIpc, LogsWhatCannotBeDelivered) {
  test::TempFolder folder;
  ASSERT_EQ(Logger::Initialize(Logger::FILE_LOGGER, folder / "log", "", 2), 0);
  int port = 0;
  { port = test::LocalUi(25'000).port(); }
  test::WriteFile(folder / "gone", "ui_port = " + std::to_string(port));
  test::WriteFile(folder / "path", "ui_socket_path = /tmp/ui");
  for (const char* conf : {"gone", "path"}) {
    Settings::getInstance().loadConfigSettings(folder / conf);
    UiReportQueue::DeliverToUi(PObject("x"), nullptr);
  }
  Logger::Destroy();
  const std::string log = test::ReadFile(folder / "log");
  const std::size_t first = log.find("failed to connect to local port " + std::to_string(port));
  const std::size_t second = log.find("message (\"x\") is not sent", first);
  const std::size_t third = log.find("failed to connect to domain socket /tmp/ui", second);
  EXPECT_NE(log.find("message (\"x\") is not sent", third), std::string::npos) << log;
}

}  // namespace
}  // namespace tolven
