// Putting what was downloaded in place.
#include <algorithm>
#include <string_view>

#include "client/core/conflict-rename.h"
#include "client/core/handlers/download-remote-handler.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/handler-helper.h"
#include "client/event-manager.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "rsapi-cpp/delta-file-reader.h"
#include "rsapi-cpp/simple-file-reader.h"

namespace tolven {

namespace {

constexpr std::uint32_t kBlockSize = 2048;
constexpr std::uint32_t kStrongSize = 8;
constexpr int kMaxPatchErrors = 3;
// How often a target that keeps changing is looked at again.
constexpr int kPlaceTries = 5;
constexpr int kNotRenamed = 1;

// Makes a folder with those on its way, each durable in the one above it, but for the session's own
// folder: one that is away for the moment is not made anew in its place.
int MakeFolderBelow(const ustring& root, const ustring& path) {
  platform::Files& files = platform::files();
  platform::NodeInfo info;
  const std::string_view text = path.view();
  for (std::size_t end = root.size(); end < text.size();) {
    const std::size_t above = end;
    end = std::min(text.find('/', above + 1), text.size());
    const ustring folder(text.substr(0, end));
    const bool is_new = files.Stat(folder, info).is(platform::ErrorKind::kNotFound);
    if (const int made = FSMKDir(folder, false); made != 0) return made;
    if (is_new && !files.SyncDirectory(ustring(text.substr(0, above))).ok()) return -1;
  }
  return 0;
}

}  // namespace

int DownloadRemoteHandler::ProcessDownload(File& local_file, const DBFileInfo&, PObject& response,
                                           TempFile& sign_temp) {
  if (!HandlerHelper::IsRootProved(GetContext())) return ReturnEvent();
  if (const int blocked = ClearWay(); blocked < 0) return blocked;
  if (GetContext().GetEntry().isMSDOS) AdjustMtimeForMSDOS(response);
  const PObject& answer = response;
  const int result = answer["is_dir"].asBool() ? ProcessDownloadDirectory(answer)
                                               : ProcessDownloadFile(local_file, answer, sign_temp);
  return result < 0 ? result : UpdateAttributes(GetContext().GetFullPath(), answer);
}

// FAT keeps times of two seconds.
void DownloadRemoteHandler::AdjustMtimeForMSDOS(PObject& response) const {
  const PObject& answer = response;
  if (!answer["mtime"].hasMember("mtime")) return;
  const std::uint32_t time = answer["mtime"]["mtime"].asUInt32();
  response["mtime"]["mtime"] = time & ~1U;
}

int DownloadRemoteHandler::ProcessDownloadDirectory(const PObject& response) {
  const ustring& path = GetContext().GetFullPath();
  bool moved = false;
  const int code =
      HandleDownloadConflict(File(path, true), GetContext().GetDatabaseInfo(), response, moved);
  if (code < 0) {
    HANDLER_ERROR("ProcessDownloadDirectory: HandleDownloadConflict(%s) failed.", path);
    return code;
  }
  const int made = MakeFolderBelow(GetContext().GetEntry().local_path, path);
  if (made != 0) {
    HANDLER_ERROR("ProcessDownloadDirectory: Cannot create directory '%s'.", path);
    return made == kNameNotSupported ? made : static_cast<int>(ERR_SYS);
  }
  (void)UpdateModifyTime(path, response);
  return 0;
}

int DownloadRemoteHandler::ProcessDownloadFile(const File& local_file, const PObject& response,
                                               TempFile& sign_temp) {
  const ustring& path = GetContext().GetFullPath();
  ustring new_path;
  int result = PrepareDownloadFile(response, new_path, sign_temp);
  if (result >= 0 && new_path == path) return KeepLocalFile(local_file, response);
  if (result >= 0) {
    // Before the move, so that the file has its final time when it appears.
    (void)UpdateModifyTime(new_path, response);
    result = MoveFileToTarget(new_path, response);
  }
  if (result < 0 && !new_path.empty() && new_path != path) (void)FSRemove(new_path, false);
  return result;
}

// The content that is here was meant to stay.
int DownloadRemoteHandler::KeepLocalFile(const File& local_file, const PObject& response) {
  EventContext& context = GetContext();
  const ustring& path = context.GetFullPath();
  const File now(path, true);
  if (!now.IsKnown()) return ERR_SYS;
  if (!now.Exists()) {
    HANDLER_NOTE("ProcessDownloadFile: '%s' has already been removed", path);
    (void)context.RemoveLocalDatabaseInfo();
    return ERR_SYS;
  }
  if (IsUntouched(local_file.GetInfo(), now.GetInfo())) {
    replaces_time_ = true;
    (void)UpdateModifyTime(path, response);
    return 0;
  }
  HANDLER_NOTE(
      "ProcessDownloadFile: file [%s] has been modified, remove db record and retry download. "
      "current [%d, %llu], orginal [%d, %llu]",
      path, now.GetLastModifiedTime(), now.GetSize(), local_file.GetLastModifiedTime(),
      local_file.GetSize());
  (void)context.RemoveLocalDatabaseInfo();
  return ERR_CONFLICT_DOWNLOAD;
}

int DownloadRemoteHandler::PrepareDownloadFile(const PObject& response, ustring& new_path,
                                               TempFile& sign_temp) {
  const ustring& path = GetContext().GetFullPath();
  const PObject& file = response["file"];
  if (!response.hasMember("file") || file["refer_local"].asBool() || file["refer"].asBool()) {
    new_path = path;
    return 0;
  }
  if (sign_temp.create() != 0) {
    HANDLER_ERROR("PrepareDownloadFile: Failed to prepare temporary file.");
    return ERR_SYS;
  }
  ustring hash;
  const int code = file["is_delta"].asBool()
                       ? ApplyPatch(response, new_path, sign_temp.getPath(), hash)
                       : VerifyWholeFile(response, new_path, sign_temp.getPath(), hash);
  if (code < 0) return code;
  // Nothing replaces a local file unverified.
  if (!hash.empty() && hash == file["hash"].asString() &&
      File(new_path, true).GetSize() == file["size"].asUInt64()) {
    return 0;
  }
  HANDLER_WARNING("PrepareDownloadFile: Check basis file of (%s) after patching failure.", path);
  const int result = HandleDownloadPatchError(response);
  if (result < 0) return result;
  HANDLER_DEBUG("PrepareDownloadFile: Basis file is the same as the new file.");
  (void)FSRemove(new_path, false);
  // Made of something else than what stays.
  (void)sign_temp.remove();
  new_path = path;
  return 0;
}

int DownloadRemoteHandler::VerifyWholeFile(const PObject& response, ustring& new_path,
                                           const ustring& sign_path, ustring& hash) {
  HANDLER_DEBUG("PrepareDownloadFile: Download whole file.");
  new_path = response["file"]["data"].asBinary().path;
  SimpleFileReader reader;
  reader.setAbortFlag(GetAbortFlag());
  reader.setFile(new_path);
  reader.setHashString(hash);
  reader.setSignature(sign_path, kBlockSize, kStrongSize);
  if (reader.readFile() >= 0) return 0;
  HANDLER_ERROR("PrepareDownloadFile: Failed to verify new file, try it again.");
  return ERR_SYS;
}

// A patch that does not fit leaves `hash` empty.
int DownloadRemoteHandler::ApplyPatch(const PObject& response, ustring& new_path,
                                      const ustring& sign_path, ustring& hash) {
  HANDLER_DEBUG("PrepareDownloadFile: Download patch file.");
  new_path = File::CreateTempFile(GetContext().GetWorkingDirectory()).GetPath();
  if (new_path.empty()) {
    HANDLER_ERROR("PrepareDownloadFile: Failed to prepare temporary file.");
    return ERR_SYS;
  }
  HANDLER_DEBUG("PrepareDownloadFile: New file will be generated at '%s'.", new_path);
  DeltaFileReader reader;
  reader.setAbortFlag(GetAbortFlag());
  reader.setFile(GetContext().GetFullPath(), response["file"]["data"].asBinary().path);
  reader.setNewFile(new_path);
  reader.setMaxSize(response["file"]["size"].asUInt64());
  reader.setHashString(hash);
  reader.setSignature(sign_path, kBlockSize, kStrongSize);
  const int code = reader.readFile();
  if (code == FileReader::ERROR_ABORT) return ERR_INT;
  if (code < 0) hash.clear();
  return 0;
}

int DownloadRemoteHandler::HandleDownloadPatchError(const PObject& response) {
  const EventContext& context = GetContext();
  const File local(context.GetFullPath(), true);
  if (!local.IsKnown()) return ERR_SYS;
  if (!local.Exists()) {
    HANDLER_WARNING(
        "Worker (%d): HandleDownloadPatchError: Basis unchanged but cannot prepare file. (basis "
        "removed)",
        GetWorkerId());
    return ERR_INT;
  }
  const int conflict = TestDownloadConflict(local, context.GetDatabaseInfo(), response);
  if (conflict < 0) return conflict;
  if (conflict == CONFLICT_IGNORE || conflict == CONFLICT_REMOVED) return 0;
  if (conflict == CONFLICT_RETRY) {
    HANDLER_WARNING(
        "Worker (%d): HandleDownloadPatchError: Basis changed, try to resolve conflict.",
        GetWorkerId());
    const int renamed = ConflictRename(context.GetFullPath(),
                                       context.GetConnectionInfo().computer_name, "Conflict");
    return renamed < 0 ? static_cast<int>(ERR_SYS) : static_cast<int>(ERR_INT);
  }
  HANDLER_WARNING(
      "Worker(%d): HandleDownloadPatchError: Basis unchanged but cannot prepare file. (incorrect "
      "patch file)",
      GetWorkerId());
  whole_file_key_ = GetResumeToken();
  if (++patch_err_count > kMaxPatchErrors) {
    patch_err_count = 0;
    EventManager::getInstance().CountUnappliedServerEvent(context.GetEvent().m_sess_id);
    SetErrorAction(ACTION_DONE);
  }
  return ERR_SYS;
}

int DownloadRemoteHandler::UpdateModifyTime(const ustring& full_path, const PObject& response) {
  if (!response.hasMember("mtime")) {
    HANDLER_DEBUG("UpdateModifyTime: Last motify time is not provided.");
    return 0;
  }
  const PObject& mtime = response["mtime"];
  std::uint32_t time = mtime["mtime"].asUInt32();
  if (!mtime["refer_local"].asBool() && mtime["refer"].asBool()) {
    HANDLER_DEBUG("UpdateModifyTime: Last motify time is not changed.");
    time = GetContext().GetDatabaseInfo().fileModTime;
  }
  File file(full_path, true);
  if (file.SetLastModifiedTime(time)) return 0;
  HANDLER_ERROR("Failed to write mtime for '%s'.", full_path);
  return -1;
}

int DownloadRemoteHandler::MoveFileToTarget(const ustring& new_file, const PObject& response) {
  const ustring& path = GetContext().GetFullPath();
  const File replaced(path, true);
  // A content that comes from elsewhere runs as nobody else.
  const std::uint32_t mode = replaced.IsFile() ? replaced.GetMode() & 0777 : FSNewFileMode();
  // On the disk before anything is to stand for it.
  if (FSFinish(new_file, mode) != 0) return ERR_SYS;
  const int result = PlaceFile(new_file, response);
  if (result != kNotRenamed) return result;
  // What was downloaded is not thrown away: the next attempt finds it by its hash.
  const PObject& file = response["file"];
  (void)MoveFileToRecycleBin(new_file, file["size"].asUInt64(), file["hash"].asString(),
                             response["mac_attribute"]["hash"].asString());
  return ERR_SYS;
}

// 0, the code of a failure, or kNotRenamed when the last step alone failed.
int DownloadRemoteHandler::PlaceFile(const ustring& new_file, const PObject& response) {
  const ustring& path = GetContext().GetFullPath();
  for (int i = 0; i < kPlaceTries; ++i) {
    FILE_INFO expected;
    const int code = ClearTarget(response, expected);
    if (code < 0) return code;
    const int made = MakeParent();
    if (made < 0) return made;
    if (!HandlerHelper::IsRootProved(GetContext())) return ReturnEvent();
    const File now(path, true);
    // Somebody was here in between: that is judged like what was here before.
    if (!IsUntouched(expected, now.GetInfo())) continue;
    HANDLER_DEBUG("MoveFileToTarget: Rename '%s' -> '%s'", new_file, path);
    const int result = MoveFileW(new_file, path, now.Exists());
    if (result == 0) return 0;
    if (result == kNameTaken) continue;
    HANDLER_ERROR("MoveFileToTarget: Cannot rename from '%s' -> '%s'.", new_file, path);
    return result == kNameNotSupported ? result : kNotRenamed;
  }
  HANDLER_ERROR("MoveFileToTarget: Cannot rename from '%s' -> '%s'.", new_file, path);
  return kNotRenamed;
}

// Sees to what stands at the target. `expected` is what is there afterwards.
int DownloadRemoteHandler::ClearTarget(const PObject& response, FILE_INFO& expected) {
  const ustring& path = GetContext().GetFullPath();
  const File local(path, true);
  bool moved = false;
  const int code = HandleDownloadConflict(local, GetContext().GetDatabaseInfo(), response, moved);
  if (code < 0) {
    HANDLER_ERROR("MoveFileToTarget: HandleDownloadConflict(%s) failed.", path);
    return code;
  }
  expected = moved ? FILE_INFO() : local.GetInfo();
  return 0;
}

int DownloadRemoteHandler::MakeParent() {
  const std::string_view path = GetContext().GetFullPath().view();
  const int made =
      MakeFolderBelow(GetContext().GetEntry().local_path, ustring(path.substr(0, path.rfind('/'))));
  if (made == 0) return 0;
  HANDLER_ERROR("MoveFileToTarget: Cannot create parent directory of '%s'.",
                GetContext().GetFullPath());
  return made == kNameNotSupported ? made : static_cast<int>(ERR_SYS);
}

int DownloadRemoteHandler::MoveFileW(const ustring& source, const ustring& target, bool replace) {
  const int code = FSMoveIntoPlace(source, target, replace);
  if (code != 0) HANDLER_ERROR("MoveFile: fail to rename '%s' -> '%s'.", source, target);
  return code;
}

int DownloadRemoteHandler::MoveFileToRecycleBin(const ustring& source, std::uint64_t size,
                                                const ustring& hash, const ustring& mac_hash) {
  const EventContext& context = GetContext();
  if (context.GetEventDatabase() == nullptr) {
    HANDLER_CRIT("moveFileToRecycleBin: Missing databasehandle.");
    return -1;
  }
  FileEventDB& db = *context.GetEventDatabase();
  ustring known;
  if (db.getFilePathByHashFromRecycle(hash, known) == 1) {
    if (File(JoinPath(context.GetRecycleBinDir(), known.view()), true).IsFile()) {
      (void)FSRemove(source, false);
      return 0;
    }
    (void)db.rmRecycleByPath(known);  // somebody emptied the bin
  }
  ustring target;
  if (FSCreateTempPath(context.GetRecycleBinDir(), target) != 0) {
    (void)FSRemove(source, false);
    return -1;
  }
  if (FSRename(source, target, true) != 0) {
    HANDLER_ERROR("moveFileToRecycleBin: Failed to move from '%s' to '%s'.", source, target);
    return -1;
  }
  const ustring name("/" + File(target, true).GetName().str());
  if (db.addFileToRecycleBin(name, size, hash, mac_hash) != 0) {
    HANDLER_ERROR("moveFileToRecycleBin: Failed to addFileToRecycleBin '%s'", name);
    (void)FSRemove(target, false);  // nobody would find it
    return -1;
  }
  Registry::getInstance().InitRecycleTime(
      context.GetEntry(), static_cast<std::uint32_t>(platform::clock().WallSeconds()));
  return 0;
}

}  // namespace tolven
