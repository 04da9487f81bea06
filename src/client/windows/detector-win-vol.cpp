#include "client/windows/detector-win-vol.h"

#include "client/windows/win-umount-notifyer.h"
#include "lib/log.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "detector_vol_debug";
constexpr char kClassName[] = "TolvenhubWindowClass";
constexpr char kAppName[] = "Tolvenhub";

}  // namespace

DetectorVol::~DetectorVol() { WinUmountNotifyer::GetInstance().Clear(); }

int DetectorVol::AddWatch(const ustring& path, std::uint64_t sess_id) {
  return WinUmountNotifyer::GetInstance().AddWatch(path, sess_id);
}

void DetectorVol::RemoveWatch(std::uint64_t sess_id) {
  WinUmountNotifyer::GetInstance().RemoveWatch(sess_id);
}

int DetectorVol::Stop() {
  m_run_loop.RunLoopStop();
  return Task::Stop();
}

void DetectorVol::DoTask() {
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] detector-win-vol(%d): DetectorVol:start\n",
                 __LINE__);
  if (m_run_loop.InitWindowClass(kClassName, kAppName) < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] detector-win-vol(%d): Failed to InitWindowClass\n", __LINE__);
    return;
  }
  m_run_loop.RunLoopRun();
  m_run_loop.UnregisterWindowClass();
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] detector-win-vol(%d): DetectorVol:stop\n",
                 __LINE__);
}

}  // namespace tolven
