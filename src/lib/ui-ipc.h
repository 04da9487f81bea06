// What the daemon tells the UI. Every report is a map with the key "notify"; see ui-ipc.cpp for the
// further keys of each. Reports may be made by any thread, never wait for the UI and reach it in
// order; a UI that has gone away misses them.
//
// The Report operations and SendMessageW return 0, or -1 when the report was dropped at once.
#pragma once

#include <cstdint>

#include "client/event.h"
#include "lib/channel.h"
#include "protocol/object.h"

namespace tolven {

class UI_IPC {
 public:
  // An event on this path was queued.
  static int ReportFileSyncingEventToUI(const Event& event);
  // An event on this path was applied.
  static int ReportFileEventToUI(const Event& event);
  // A change that is not uploaded: the session is read-only, or the user may not.
  static int ReportFileROToUI(const Event& event);
  static int ReportFileNoPermToUI(const Event& event);
  static int ReportFileLockedEventToUI(const Event& event, int error);
  static int ReportSessionErrorToUI(std::uint64_t conn_id, std::uint64_t sess_id, int error);
  static int ReportConnectionErrorToUI(std::uint64_t conn_id, std::uint64_t sess_id, int error);

  static int SendMessageW(const PObject& msg);
  // Tells the UI that the daemon gives up its connection.
  static int LastBreath();

  // A connection to the UI that it keeps open, for messages that come from there: 0 or -1.
  int Open(Channel::CH_SOCK_T fd);
  int Recv(PObject& msg);
  void Destroy() { m_channel.Close(); }

 private:
  Channel m_channel{0x14000};
};

}  // namespace tolven
