#include "client/windows/win-umount-notifyer.h"

#include <string_view>

#include "lib/error-table.h"
#include "lib/log.h"
#include "lib/ui-ipc.h"

namespace tolven {

namespace {
constexpr char kCategory[] = "umount_notifyer_debug";
}

WinUmountNotifyer& WinUmountNotifyer::GetInstance() {
  static WinUmountNotifyer instance;
  return instance;
}

int WinUmountNotifyer::AddWatch(const ustring& path, std::uint64_t sess_id) {
  const MutexLock lock(m_mutex);
  index.try_emplace(sess_id, path);
  return 0;
}

void WinUmountNotifyer::RemoveWatch(std::uint64_t sess_id) {
  const MutexLock lock(m_mutex);
  index.erase(sess_id);
}

void WinUmountNotifyer::Clear() {
  const MutexLock lock(m_mutex);
  index.clear();
}

bool WinUmountNotifyer::IsOnVolume(const ustring& path, const ustring& drive) {
  const std::string_view text = path.view(), volume = drive.view();
  if (!volume.starts_with("/")) return text.substr(0, text.find(':')) == volume;
  if (!text.starts_with(volume)) return false;
  return text.size() == volume.size() || volume.ends_with("/") || text[volume.size()] == '/';
}

void WinUmountNotifyer::NotifyUnmount(const ustring& drive) {
  Logger::LogMsg(Logger::L_CRIT, kCategory,
                 L"[CRIT] win-umount-notifyer(%d): WinUmountNotifyer NotifyUnmount drive %s\n",
                 __LINE__, drive);
  const MutexLock lock(m_mutex);
  for (const auto& [sess_id, path] : index) {
    if (!IsOnVolume(path, drive)) continue;
    Logger::LogMsg(
        Logger::L_ERR, kCategory,
        L"[ERROR] win-umount-notifyer(%d): NotifyUnmount: drive [%s] has been unmount.\n", __LINE__,
        drive);
    UI_IPC::ReportSessionErrorToUI(0, sess_id, ErrorCodes::ERR_WATCH_VOL_UMOUNT);
  }
}

}  // namespace tolven
