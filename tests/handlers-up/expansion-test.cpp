// What follows the expansion of a folder.
#include <gtest/gtest.h>

#include "client/core/callbacks/create-dir-self-event-callback.h"
#include "client/core/event-context.h"
#include "client/core/rescan-requests.h"
#include "event-gen/session-fixture.h"

namespace tolven {
namespace {

using ExpansionTest = test::SessionTest;

TEST_F(ExpansionTest, AFolderThatWentWhileItsContentArrivedIsLookedAtAgain) {
  EventManager& manager = EventManager::getInstance();
  Event arriving;
  arriving.m_sess_id = 1;
  arriving.m_type = Event::EV_CREATE;
  arriving.m_path = "/gone/file";
  arriving.m_sync_id = 12;
  arriving.setServerEvent();
  manager.PushServerEvent(arriving);
  Task worker;
  ASSERT_EQ(manager.PullEvent(&worker, arriving), 0);

  EventContext context;
  Event removed;
  removed.m_sess_id = 1;
  removed.m_type = Event::EV_REMOVE;
  removed.m_path = "/gone";
  removed.setDir();
  removed.setLocalEvent();
  context.SetEvent(removed);
  context.SetEntry(entry_);
  context.Update();
  CreateDirSelfEventCallback().Exec(context);
  EXPECT_TRUE(RescanRequests::getInstance().Take(1)) << "its end would never reach the server";
  EXPECT_EQ(manager.DoneEvent(&worker, arriving), 0);
  EXPECT_EQ(Plan(), std::vector<std::string>{}) << "the content might have brought it back";

  CreateDirSelfEventCallback().Exec(context);
  EXPECT_EQ(Plan(), std::vector<std::string>{"-/gone/"});
}

}  // namespace
}  // namespace tolven
