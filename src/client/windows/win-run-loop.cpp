#include "client/windows/win-run-loop.h"

#include "client/windows/win-umount-notifyer.h"
#include "lib/log.h"
#include "platform/volume-mask.h"

namespace tolven {

namespace {

using platform::Status;
using platform::VolumeMonitor;

constexpr char kCategory[] = "runloop_debug";

// What a notification about devices is about.
constexpr std::uint32_t kDevNodesChanged = 0x0007;
constexpr std::uint32_t kFirstOfDevices = 0x8000;  // arrivals and requests stand before removals
constexpr std::uint32_t kDeviceRemoveComplete = 0x8004;

void LogRemoval() {
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] runloop-win(%d): WinProcCallback: DBT_DEVICEREMOVECOMPLETE\n", __LINE__);
}

}  // namespace

WinRunLoop::WinRunLoop() : monitor_(platform::volumes().NewMonitor()) {}

int WinRunLoop::InitWindowClass(const ustring& class_name, const ustring& app_name) {
  m_app_name = app_name;
  VolumeMonitor::Step step{};
  const Status status = monitor_->Prepare(class_name, step);
  if (status.ok()) return 0;
  if (step == VolumeMonitor::Step::kProgram) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] runloop-win(%d): Failed to GetModuleHandleEx(%d)\n", __LINE__,
                   status.code);
  } else {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] runloop-win(%d): RegisterClassEx Failed, [%d]\n", __LINE__,
                   status.code);
  }
  return -1;
}

int WinRunLoop::UnregisterWindowClass() { return monitor_->Release().ok() ? 0 : -1; }

int WinRunLoop::RunLoopRun() {
  const Status status = monitor_->Run(m_app_name, *this);
  if (status.ok()) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] runloop-win(%d): WinRunLoop: CreateWindowEx Failed(%d)\n", __LINE__,
                 status.code);
  return -1;
}

void WinRunLoop::RunLoopStop() { monitor_->Stop(); }

void WinRunLoop::OnGone(const ustring& volume) {
  LogRemoval();
  WinUmountNotifyer::GetInstance().NotifyUnmount(volume);
}

void WinRunLoop::OnDeviceChange(std::uint32_t event, bool is_volume, std::uint32_t unit_mask) {
  if (event == kDeviceRemoveComplete) {
    LogRemoval();
    if (!is_volume) return;
    const char letter = platform::LetterOfMask(unit_mask);
    WinUmountNotifyer::GetInstance().NotifyUnmount(ustring(letter));
    return;
  }
  if (event == kDevNodesChanged) return;
  if (event >= kFirstOfDevices && event < kDeviceRemoveComplete) return;
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] runloop-win(%d): WinProcCallback: unknow %d\n", __LINE__, event);
}

void WinRunLoop::OnMessage(std::uint32_t message) {
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] runloop-win(%d): WinProcCallback: [%d]\n",
                 __LINE__, message);
}

}  // namespace tolven
