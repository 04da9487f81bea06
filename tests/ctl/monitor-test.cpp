// What is said of the daemon, and how it is shown.

#include "ctl/monitor.h"

#include <gtest/gtest.h>

#include "ctl/live-view.h"
#include "ctl/words.h"
#include "platform/clock.h"
#include "platform/fake-clock.h"

namespace tolven::ctl {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class MonitorTest : public testing::Test {
 protected:
  MonitorTest() {
    platform::SetClock(&clock_);
    std::vector<ConnectionRecord> connections(1);
    connections[0].id = 4;
    connections[0].server = {"host", 1};
    std::vector<SessionRecord> sessions(1);
    sessions[0].id = 7;
    sessions[0].connection_id = 4;
    sessions[0].folder = "/f";
    monitor_.SetRecords(connections, sessions);
  }
  ~MonitorTest() override { platform::SetClock(nullptr); }

  static PObject Status(const char* session, const char* connection) {
    PObject status;
    PObject& one = status["session_list"].asArray().emplace_back();
    one["session_id"] = 7;
    one["status"] = session;
    PObject& other = status["connection_list"].asArray().emplace_back();
    other["connection_id"] = 4;
    other["status"] = connection;
    return status;
  }
  // Looks at the daemon's status once a second.
  void Pass(int count, const char* session = "uptodate", const char* connection = "connected") {
    for (int i = 0; i < count; ++i) {
      clock_.Advance(seconds(1));
      monitor_.OnStatus(Status(session, connection));
    }
  }
  std::string State() {
    return monitor_.Snapshot()["sessions"].asArray()[0]["state"].asString().str();
  }
  static PObject Notification(const char* kind, const char* path) {
    PObject message;
    message["notify"] = kind;
    message["session_id"] = 7;
    message["path"] = path;
    return message;
  }

  platform::FakeClock clock_;
  Monitor monitor_;
};

TEST_F(MonitorTest, SaysSettledOnlyAfterTwelveQuietSecondsUpToDateAndConnected) {
  Pass(20);
  EXPECT_EQ(State(), "not added");
  EXPECT_FALSE(monitor_.IsSettled(7));
  monitor_.SetAdded(7, true);
  Pass(11);
  EXPECT_EQ(State(), "uptodate");
  Pass(1);
  EXPECT_EQ(State(), "settled");
  EXPECT_TRUE(monitor_.IsSettled(7));

  monitor_.OnNotification(Notification("syncing_file", "/a"));
  EXPECT_EQ(State(), "uptodate");
  Pass(11);
  EXPECT_EQ(State(), "uptodate");
  Pass(1);
  EXPECT_EQ(State(), "settled");

  Pass(1, "syncing");
  EXPECT_EQ(State(), "syncing");
  Pass(11);
  EXPECT_EQ(State(), "uptodate");
  Pass(1, "uptodate", "disconnected");
  EXPECT_EQ(State(), "disconnected");
  Pass(11);
  EXPECT_FALSE(monitor_.IsSettled(7));
  Pass(1);
  EXPECT_TRUE(monitor_.IsSettled(7));

  PObject error;  // of the connection that the session uses
  error["notify"] = "error";
  error["connection_id"] = 4;
  error["error_type"] = -6;
  monitor_.OnNotification(error);
  monitor_.OnNotification(error);
  EXPECT_FALSE(monitor_.IsSettled(7));
  EXPECT_EQ(monitor_.Snapshot()["problems"].asArray().size(), 1u);
  const auto problem = [this] {
    return monitor_.Snapshot()["connections"].asArray()[0]["problem"].asString();
  };
  EXPECT_NE(problem().find("tolvenctl token"), ustring::npos);
  Pass(61);  // it was not repeated
  EXPECT_EQ(problem(), "");
  monitor_.SetAdded(7, true);  // added anew
  EXPECT_FALSE(monitor_.IsSettled(7));
  Pass(12);
  EXPECT_TRUE(monitor_.IsSettled(7));
  monitor_.OnStatus(PObject());  // no answer
  EXPECT_EQ(State(), "unknown");
  EXPECT_FALSE(monitor_.IsSettled(7));
  EXPECT_FALSE(monitor_.IsSettled(8));
}

TEST_F(MonitorTest, MeasuresTransfersAndPrintsEachChangeOnce) {
  monitor_.SetAdded(7, true);
  PObject status = Status("syncing", "connected");
  PObject& worker = status["worker_list"].asArray().emplace_back();
  worker["session_id"] = 7;
  worker["path"] = "/big\x1b[31m";
  worker["status"] = "uploading";
  worker["total_size"] = 4096;
  for (const int sent : {0, 1024, 2048}) {
    worker["progress"] = sent;
    clock_.Advance(seconds(1));
    monitor_.OnStatus(status);
  }
  monitor_.OnNotification(Notification("syncing_file", "/next"));
  const PObject snapshot = monitor_.Snapshot();
  EXPECT_EQ(snapshot["transfers"].asArray()[0]["speed"].asUInt64(), 1024u);
  const auto picture = LiveView::Picture(snapshot, 60, 40);
  std::string all;
  for (const std::string& line : picture) {
    EXPECT_LE(line.size(), 60u);
    EXPECT_EQ(line.find('\x1b'), std::string::npos);
    all += line + "\n";
  }
  EXPECT_NE(all.find("[##########..........]  50%  2.0 KiB of 4.0 KiB"), std::string::npos) << all;
  EXPECT_NE(all.find("to sync /next"), std::string::npos) << all;
  EXPECT_EQ(LiveView::Picture(snapshot, 60, 3).size(), 3u);

  LiveView view(false);
  EXPECT_EQ(view.Changes(snapshot),
            (std::vector<std::string>{"[7] /f <-> host:1, view 0, /: syncing, 0 to go",
                                      "uploading /big?[31m"}));
  EXPECT_TRUE(view.Changes(snapshot).empty());
  PObject done = Notification("recent_file", "/a_pc_Mar-05-143007-2014_Conflict.txt");
  done["event_type"] = 3;
  monitor_.OnNotification(done);
  EXPECT_EQ(view.Changes(monitor_.Snapshot()),
            (std::vector<std::string>{
                "kept both versions: /a_pc_Mar-05-143007-2014_Conflict.txt (session 7)"}));
  EXPECT_EQ(monitor_.Snapshot()["problems"].asArray().size(), 1u);
}

TEST(Words, KnowsConflictNames) {
  for (const char* name :
       {"r_pc1_Mar-05-143007-2014_Conflict.txt", "r_pc_1_M\xC3\xA4r-05-143007-2014_Conflict_1.txt",
        "x__Mar-05-143007-2014_WhiteSpaceConflict",
        "d_p_Mar-05-143007-2014_TailCharacterConflict"}) {
    EXPECT_TRUE(IsConflictName(name)) << name;
  }
  for (const char* name : {"Conflict.txt", "r_pc1_Mar-05-143007-2014_Conflict.txt.bak.txt",
                           "r_Mar-5-143007-2014_Conflict", "/a_p_Mar-05-143007-2014_Conflict/b"}) {
    EXPECT_FALSE(IsConflictName(name)) << name;
  }
  EXPECT_EQ(Printable("a\x1b\x7f\xC2\x9B\xC3\xA9\n"), "a???\xC3\xA9?");
}

}  // namespace
}  // namespace tolven::ctl
