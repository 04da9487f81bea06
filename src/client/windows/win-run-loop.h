// The loop in which a thread waits for the system's word that a volume goes away; on Windows that
// of a hidden window, with its messages. What goes away is told to WinUmountNotifyer. Messages go
// to "runloop_debug".
#pragma once

#include <cstdint>
#include <memory>

#include "platform/volumes.h"
#include "ustring/ustring.h"

namespace tolven {

// InitWindowClass, RunLoopRun and UnregisterWindowClass belong to one thread, in this order.
class WinRunLoop : private platform::VolumeMonitor::Listener {
 public:
  WinRunLoop();

  // Of a window named `app_name`: 0 or -1.
  int InitWindowClass(const ustring& class_name, const ustring& app_name);
  int UnregisterWindowClass();  // 0 or -1
  // Waits until RunLoopStop: 0, or -1 when the system's word cannot be waited for.
  int RunLoopRun();
  // Any thread may call, also before RunLoopRun, which then returns at once.
  void RunLoopStop();

 private:
  void OnGone(const ustring& volume) override;
  void OnDeviceChange(std::uint32_t event, bool is_volume, std::uint32_t unit_mask) override;
  void OnMessage(std::uint32_t message) override;

  const std::unique_ptr<platform::VolumeMonitor> monitor_;
  ustring m_app_name;
};

}  // namespace tolven
