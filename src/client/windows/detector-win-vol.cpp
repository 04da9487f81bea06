#include "client/windows/detector-win-vol.h"

#include "client/windows/win-umount-notifyer.h"
#include "lib/log.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "detector_vol_debug";
constexpr char kLoopCategory[] = "runloop_debug";

void OnVolumeGone(const ustring& volume) {
  Logger::LogMsg(Logger::L_ERR, kLoopCategory,
                 L"[ERROR] runloop-win(%d): WinProcCallback: DBT_DEVICEREMOVECOMPLETE\n", __LINE__);
  WinUmountNotifyer::GetInstance().NotifyUnmount(volume);
}

}  // namespace

DetectorVol::DetectorVol() : monitor_(platform::volumes().NewMonitor()) {}

DetectorVol::~DetectorVol() { WinUmountNotifyer::GetInstance().Clear(); }

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
  const platform::Status status = monitor_->Run(OnVolumeGone);
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kLoopCategory,
                   L"[ERROR] runloop-win(%d): WinRunLoop: CreateWindowEx Failed(%d)\n", __LINE__,
                   status.code);
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] detector-win-vol(%d): Failed to InitWindowClass\n", __LINE__);
  }
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] detector-win-vol(%d): DetectorVol:stop\n",
                 __LINE__);
}

}  // namespace tolven
