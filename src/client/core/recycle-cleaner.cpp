#include "client/core/recycle-cleaner.h"

#include <cstdint>
#include <set>

#include "client/core/session-layout.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/file-op.h"
#include "lib/log.h"
#include "platform/clock.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "recycle_cleaner_debug";
constexpr std::uint32_t kKeepSeconds = 1800;
constexpr unsigned kRetrySeconds = 3;

int Fail(int line, const xchar* text) {
  Logger::LogMsg(Logger::L_ERR, kCategory, text, line);
  return -1;
}

}  // namespace

void RecycleCleaner::Context::clear() {
  entry.clear();
  entry.perm_mode = PERM_SYNC_ALL;
}

int RecycleCleaner::Pause() {
  abort_flag = 1;
  return Task::Pause();
}

int RecycleCleaner::Resume() {
  abort_flag = 0;
  return Task::Resume();
}

int RecycleCleaner::Stop() {
  abort_flag = 1;
  return Task::Stop();
}

void RecycleCleaner::DoTask() {
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] recycle-cleaner(%d): RecycleCleaner START.\n", __LINE__);
  for (State state = GetState(); state != STOP; state = GetState()) {
    if (state == PAUSE) {
      WaitPaused();
    } else if (UpdateContext() != 0 || Rotate() != 0) {
      Wait(kRetrySeconds);
    } else {
      Wait(1);
    }
  }
  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] recycle-cleaner(%d): RecycleCleaner : stop working\n", __LINE__);
}

int RecycleCleaner::UpdateContext() {
  if (Registry::getInstance().FindNext(context.entry.sess_id, context.entry) == 1) return 0;
  context.clear();
  return -1;
}

int RecycleCleaner::Rotate() {
  const std::uint32_t oldest = context.entry.recycle_time;
  if (oldest == 0) return 0;
  const auto now = static_cast<std::uint32_t>(platform::clock().WallSeconds());
  // Unsigned on purpose: a time in the future, of a clock that was set back, counts as old enough.
  if (now - oldest < kKeepSeconds) return 0;

  const std::uint32_t cutoff = now - kKeepSeconds;
  FileEventDB& db = *context.entry.event_db;
  std::set<ustring> due;
  if (db.getRotateList(cutoff, due) != 0) {
    return Fail(__LINE__, L"[ERROR] recycle-cleaner(%d): Failed to getRotateList.\n");
  }
  for (const ustring& item : due) {
    if (abort_flag != 0) return 0;  // the rest, and the rows, next time
    const ustring path = GetRecycleBinDir() + item;
    Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] recycle-cleaner(%d): Need rotate '%s'.\n",
                   __LINE__, path);
    if (FSRemove(path, false) < 0) {
      Logger::LogMsg(Logger::L_ERR, kCategory,
                     L"[ERROR] recycle-cleaner(%d): Failed to remove file. at '%s'\n", __LINE__,
                     path);
      return -1;
    }
  }
  if (db.rmRotateRecords(cutoff) != 0) {
    return Fail(__LINE__, L"[ERROR] recycle-cleaner(%d): Failed to rmRotateRecords.\n");
  }
  std::uint32_t next = 0;
  if (db.getOldestRecyleTime(next) != 0) {
    return Fail(__LINE__, L"[ERROR] recycle-cleaner(%d): Failed to getOldestRecyleTime.\n");
  }
  Registry::getInstance().UpdateRecycleTime(context.entry, next);
  // Whatever came in behind the last look set its time in vain.
  if (db.getOldestRecyleTime(next) == 0 && next != 0) {
    Registry::getInstance().InitRecycleTime(context.entry, next);
  }
  return 0;
}

ustring RecycleCleaner::GetRecycleBinDir() const {
  return JoinPath(context.entry.local_path, kWorkingDirectory) + "/" + kRecycleBin;
}

}  // namespace tolven
