#include "client/windows/detector-win-vol.h"

#include "client/windows/win-umount-notifyer.h"
#include "lib/log.h"

namespace tolven {

namespace {
constexpr char kCategory[] = "detector_vol_debug";
}

DetectorVol::DetectorVol() : monitor_(platform::volumes().NewMonitor()) {}

int DetectorVol::AddWatch(const ustring& path, std::uint64_t sess_id) {
  return WinUmountNotifyer::GetInstance().AddWatch(path, sess_id);
}

void DetectorVol::RemoveWatch(std::uint64_t sess_id) {
  WinUmountNotifyer::GetInstance().RemoveWatch(sess_id);
}

int DetectorVol::Stop() {
  monitor_->Stop();
  return Task::Stop();
}

void DetectorVol::DoTask() {
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] detector-win-vol(%d): DetectorVol:start\n",
                 __LINE__);
  const platform::Status status = monitor_->Run(
      [](const ustring& volume) { WinUmountNotifyer::GetInstance().NotifyUnmount(volume); });
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] detector-win-vol(%d): Failed to InitWindowClass\n", __LINE__);
  }
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] detector-win-vol(%d): DetectorVol:stop\n",
                 __LINE__);
}

}  // namespace tolven
