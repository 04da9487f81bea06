#include "client/core/root-proof.h"

#include <string>

#include "client/core/session-layout.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/error-table.h"
#include "lib/file-op.h"
#include "lib/log.h"
#include "lib/tmp-name-gen.h"
#include "lib/ui-ipc.h"
#include "platform/files.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "client_debug";
constexpr char kIdKey[] = "root_id";
constexpr std::size_t kIdBytes = 64;  // more than any id has

ustring IdPath(const ustring& local_path) {
  return JoinPath(local_path, kWorkingDirectory) + "/" + kRootIdFile;
}

// The text in the file, empty when there is none.
ustring ReadId(const ustring& local_path) {
  platform::ScopedFile file;
  platform::Files& files = platform::files();
  if (!files.Open(IdPath(local_path), platform::OpenMode::kRead, *file.receive()).ok()) return {};
  char text[kIdBytes];
  std::size_t got = 0;
  if (!files.Read(file.get(), text, sizeof text, got).ok()) return {};
  const std::string id(text, got);
  return ustring::is_valid(id) ? ustring(id) : ustring();
}

bool WriteId(const ustring& local_path, const ustring& id) {
  platform::ScopedFile file;
  platform::Files& files = platform::files();
  std::size_t written = 0;
  const bool ok =
      files.Open(IdPath(local_path), platform::OpenMode::kTruncate, *file.receive()).ok() &&
      files.Write(file.get(), id.c_str_utf8(), id.size(), written).ok() &&
      files.Sync(file.get()).ok();
  return ok && files.Close(file.Release()).ok();
}

ustring NewId() {
  TmpNameGen& names = TmpNameGen::getInstance();
  return names.getTmpName() + names.getTmpName() + names.getTmpName();
}

}  // namespace

RootProof::RootProof(std::uint64_t conn_id, std::uint64_t sess_id, ustring local_path, ustring id)
    : conn_id_(conn_id),
      sess_id_(sess_id),
      local_path_(std::move(local_path)),
      id_(std::move(id)) {}

bool RootProof::Look() {
  FILE_INFO info;
  if (FSStat(local_path_, info, false) != 0 || !info.isExist || info.type != FT_DIR) return false;
  const Identity identity(info.volume_id, info.file_id);
  if (proved_ == identity) return true;
  if (id_.empty() || ReadId(local_path_) != id_) return false;
  proved_ = identity;
  return true;
}

bool RootProof::LooksProved() {
  const MutexLock lock(mutex_);
  return Look();
}

bool RootProof::IsProved() {
  const MutexLock lock(mutex_);
  if (Look()) {
    reported_ = false;
    return true;
  }
  if (!reported_) {
    reported_ = true;
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] root-proof(%d): '%s' is not the folder of session %llu\n", __LINE__,
                   local_path_, sess_id_);
    UI_IPC::ReportSessionErrorToUI(conn_id_, sess_id_, ErrorCodes::ERR_WATCH_VOL_UMOUNT);
  }
  return false;
}

RootProof::Found RootProof::Recognise(const ustring& local_path, FileEventDB& db) {
  ustring id;
  if (db.getConfigStrByKey(kIdKey, id) != 0) return Found::NO;
  if (id.empty()) return Found::NEVER_SEEN;
  return ReadId(local_path) == id ? Found::YES : Found::NO;
}

ustring RootProof::Establish(const ustring& local_path, FileEventDB& db) {
  ustring id;
  if (db.getConfigStrByKey(kIdKey, id) != 0) return {};
  if (id.empty()) {
    id = NewId();
    if (db.addConfigStr(kIdKey, id) != 0) return {};
  }
  return WriteId(local_path, id) ? id : ustring();
}

}  // namespace tolven
