#include "client/event.h"

#include <gtest/gtest.h>

namespace tolven {
namespace {

TEST(Event, PrintsWhatTheLogNeeds) {
  const char* const privileges =
      " exec_bit = 1 uid = 2 gid = 3 mode = 4 acl = A acl_hash = B share_priv_disabled = -1"
      " share_priv_deny_list = C share_priv_ro_list = D share_priv_rw_list = E"
      " share_priv_hash = F";
  Event event;
  event.m_type = Event::EV_CREATE;
  event.m_sync_id = 0x7FFFFFFFFFFFFFFF;
  event.m_path = "/ä";
  event.m_opt = "/b";
  event.m_data_size = 5;
  event.m_data_hash = "H";
  event.m_exec_bit = 1;
  event.m_privilege = {{2, 3, 4}, {"A", "B"}, {-1, "C", "D", "E", "F"}};
  EXPECT_EQ(event.toString().str(),
            std::string("Event<EV_ADD>: [9223372036854775807] /ä (local,file) size = 5, hash = H") +
                privileges);

  event.m_mode = Event::F_SERVER | Event::F_EXPAND | Event::F_RESCAN |
                 Event::F_LOCAL_SUBDIR_RESCAN_STAT | Event::F_SERVER_SUBDIR_RESCAN_STAT;
  event.setDir();
  EXPECT_EQ(event.toString().str(),
            std::string("Event<EV_ADD>: [9223372036854775807] /ä (server,dir,expand,rescan,"
                        "server_sub_dir_rescan,local_sub_dir_rescan)") +
                privileges);

  event.m_type = Event::EV_RENAME;
  EXPECT_EQ(event.toString().str(),
            std::string("Event<EV_RENAME>: from '/ä', to '/b'") + privileges);
}

TEST(Event, SettersTouchTheirFlagAlone) {
  Event event;
  EXPECT_TRUE(!event.isValid() && event.isLocalEvent() && event.isFile());
  event.m_mode = 0xFFFFFFFF;
  event.setFile();
  EXPECT_EQ(event.m_mode, 0xFFFFFFFE);
  event.setLocalEvent();
  EXPECT_EQ(event.m_mode, 0xFFFFFFFC);

  event.clear();
  EXPECT_FALSE(event.isSubDirRescan());
  event.setServerSubDirRescanWithStat();
  EXPECT_TRUE(event.isSubDirRescan() && !event.isServerSubDirRescan());
  event.setMerge();
  event.setConflict();
  EXPECT_EQ(event.m_mode, 512U | 16U | 1024U);
}

}  // namespace
}  // namespace tolven
