#include "client/core/root-proof.h"

#include <string>

#include "client/core/rescan-requests.h"
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

// Takes the text in the file, empty when there is none. False when it could not be read.
bool ReadId(const ustring& local_path, ustring& id) {
  id.clear();
  platform::ScopedFile file;
  platform::Files& files = platform::files();
  platform::Status status =
      files.Open(IdPath(local_path), platform::OpenMode::kRead, *file.receive());
  if (status.is(platform::ErrorKind::kNotFound) || status.is(platform::ErrorKind::kNotDirectory)) {
    return true;
  }
  char text[kIdBytes];
  std::size_t got = 0;
  if (status.ok()) status = files.Read(file.get(), text, sizeof text, got);
  if (!status.ok()) return false;
  const std::string found(text, got);
  if (ustring::is_valid(found)) id = found;
  return true;
}

bool HasId(const ustring& local_path, const ustring& id) {
  ustring found;
  return ReadId(local_path, found) && found == id;
}

bool WriteText(const ustring& path, const ustring& text) {
  platform::ScopedFile file;
  platform::Files& files = platform::files();
  std::size_t written = 0;
  const bool ok = files.Open(path, platform::OpenMode::kTruncate, *file.receive()).ok() &&
                  files.Write(file.get(), text.c_str_utf8(), text.size(), written).ok() &&
                  written == text.size() && files.Sync(file.get()).ok();
  return ok && files.Close(file.Release()).ok();
}

// There is never a moment in which the file is there and does not tell.
bool WriteId(const ustring& local_path, const ustring& id) {
  if (HasId(local_path, id)) return true;
  const ustring draft = IdPath(local_path) + "." + TmpNameGen::getInstance().getTmpName();
  if (WriteText(draft, id) && FSMoveIntoPlace(draft, IdPath(local_path), true) == 0) return true;
  FSRemove(draft, false);
  return false;
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
  if (id_.empty() || !HasId(local_path_, id_)) return false;
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
    // What was told of the folder meanwhile found nothing to look at.
    if (reported_) RescanRequests::getInstance().Add(sess_id_);
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
  ustring id, found;
  if (db.getConfigStrByKey(kIdKey, id) != 0) return Found::NOT_KNOWN;
  if (id.empty()) return Found::NEVER_SEEN;
  if (!ReadId(local_path, found)) return Found::NOT_KNOWN;
  return found == id ? Found::YES : Found::NO;
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
