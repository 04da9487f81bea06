// What stands in the way of a download, and what becomes of it.
#include "client/core/conflict-rename.h"
#include "client/core/handlers/download-remote-handler.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"

namespace tolven {

int DownloadRemoteHandler::TestDownloadConflict(const File& local_file, const DBFileInfo& db_info,
                                                const PObject& response) {
  const bool changed = IsBaseChanged(local_file, db_info);
  if (!changed) return CheckBasisFile(local_file, db_info, response, false);
  bool undecided = false;
  const int conflict = ConflictOfChanged(local_file, response, undecided);
  return undecided ? CheckBasisFile(local_file, db_info, response, true) : conflict;
}

// The local state against the record.
bool DownloadRemoteHandler::IsBaseChanged(const File& local_file, const DBFileInfo& db_info) {
  if (db_info.syncID == 0) {
    if (local_file.Exists()) {
      HANDLER_DEBUG("TestDownloadConflict: Base doesn't appear in database.");
      return true;
    }
    HANDLER_DEBUG("TestDownloadConflict: Base is not changed.");
    return false;
  }
  if (!local_file.Exists()) {
    HANDLER_DEBUG("TestDownloadConflict: Base is vanished.");
    return true;
  }
  if (local_file.IsDirectory()) {
    if (db_info.IsDir()) {
      HANDLER_DEBUG("TestDownloadConflict: Base is unchanged.");
      return false;
    }
    HANDLER_DEBUG(
        "TestDownloadConflict: Base appears a FILE in database, but now it's a directory.");
    return true;
  }
  if (db_info.IsDir()) {
    HANDLER_DEBUG("TestDownloadConflict: Base appears a DIR in database, but now it is a file.");
    return true;
  }
  if (local_file.GetSize() == db_info.fileSize) return false;
  HANDLER_DEBUG("TestDownloadConflict: Base file is modified. (size not match)");
  return true;
}

// `undecided`: kind and size agree, so that only the content can tell.
int DownloadRemoteHandler::ConflictOfChanged(const File& local_file, const PObject& response,
                                             bool& undecided) {
  const bool is_dir = response["is_dir"].asBool();
  if (!local_file.Exists()) return CONFLICT_REMOVED;
  if (local_file.IsDirectory()) return is_dir ? CONFLICT_IGNORE : CONFLICT_RETRY;
  if (is_dir || local_file.GetSize() != response["file"]["size"].asUInt64()) return CONFLICT_RETRY;
  undecided = true;
  return CONFLICT_NONE;
}

int DownloadRemoteHandler::CheckBasisFile(const File& local_file, const DBFileInfo& db_info,
                                          const PObject& response, bool modified) {
  ustring hash;
  if (local_file.IsFile()) {
    // Not to be interrupted: half a hash decides nothing.
    if (FileHelper::CalculateMd4FromFile(local_file.GetPath(), hash, nullptr) != 0) {
      HANDLER_ERROR("CheckBasisFile: Failed to calculate checksum for basis file");
      return ERR_SYS;
    }
    if (db_info.syncID != 0 && hash != db_info.fileCheckSum) {
      HANDLER_DEBUG("CheckBasisFile: Basis file is locally modified");
      modified = true;
    }
  }
  // Of a link or device nothing is known, so it is not the basis.
  if (local_file.Exists() && !local_file.IsFile() && !local_file.IsDirectory()) modified = true;
  if (!modified) return CONFLICT_NONE;
  if (!local_file.Exists()) return CONFLICT_RETRY;
  if (response["is_dir"].asBool()) {
    if (!local_file.IsDirectory()) return CONFLICT_RETRY;
    HANDLER_DEBUG("CheckBasisFile: Basis is now directory, ignore modification.");
    return CONFLICT_IGNORE;
  }
  const ustring wanted = response["file"]["hash"].asString();
  if (!local_file.IsFile() || hash != wanted) return CONFLICT_RETRY;
  HANDLER_DEBUG(
      "CheckBasisFile: Basis file is the same as the remote file, we are done. Basis [%s], New "
      "[%s]",
      hash, wanted);
  return CONFLICT_IGNORE;
}

int DownloadRemoteHandler::HandleDownloadConflict(const File& local_file, const DBFileInfo& db_info,
                                                  const PObject& response, bool& moved) {
  moved = false;
  if (!local_file.Exists()) return 0;
  const int conflict = TestDownloadConflict(local_file, db_info, response);
  switch (conflict) {
    case CONFLICT_RETRY:
      HANDLER_NOTE("Worker (%d): HandleDownloadConflict: conflict occurs, resolve conflict first.",
                   GetWorkerId());
      return StepAside(moved);
    case CONFLICT_IGNORE:
    case CONFLICT_REMOVED:
      HANDLER_DEBUG("Worker (%d): HandleDownloadConflict: no conflict, keep going.", GetWorkerId());
      return 0;
    case CONFLICT_NONE:
      return response["is_dir"].asBool() == local_file.IsDirectory() ? 0
                                                                     : JumpType(local_file, moved);
    default:
      return conflict;
  }
}

// The local edit survives beside what takes its place.
int DownloadRemoteHandler::StepAside(bool& moved) {
  const EventContext& context = GetContext();
  const int code =
      ConflictRename(context.GetFullPath(), context.GetConnectionInfo().computer_name, "Conflict");
  if (code < 0) return code == kNameNotSupported ? code : static_cast<int>(ERR_SYS);
  moved = true;
  return 0;
}

// An unchanged object gives way to one of the other kind; a folder only when nothing in it is news.
int DownloadRemoteHandler::JumpType(const File& local_file, bool& moved) {
  const EventContext& context = GetContext();
  HANDLER_NOTE("Worker (%d): HandleDownloadConflict: no conflict with type jump", GetWorkerId());
  if (local_file.IsDirectory()) {
    const int edits =
        FileHelper::HasLocalEdits(context, context.GetPath(), local_file.GetPath(), GetAbortFlag());
    if (edits < 0) return ERR_INT;
    if (edits > 0) return StepAside(moved);
  }
  File old = local_file;
  const int removed = FileHelper::RemoveByRename(
      old, context.GetWorkingDirectory(),
      [&](const ustring& place) { return WasEdited(local_file.GetInfo(), place); });
  if (removed < 0) {
    HANDLER_ERROR("RemoveDirectory: Failed to remove '%s'", context.GetFullPath());
    return ERR_SYS;
  }
  if (removed > 0) KeepAside(old.GetPath());
  moved = true;
  return 0;
}

// Between the test and the move: 1, 0, or -1 when that cannot be told.
int DownloadRemoteHandler::WasEdited(const FILE_INFO& before, const ustring& place) const {
  const EventContext& context = GetContext();
  if (before.type == FT_DIR) {
    return FileHelper::HasLocalEdits(context, context.GetPath(), place, nullptr);
  }
  const File now(place, true);
  if (!now.IsKnown()) return -1;
  return IsUntouched(before, now.GetInfo()) ? 0 : 1;
}

void DownloadRemoteHandler::KeepAside(const ustring& place) {
  const EventContext& context = GetContext();
  const ustring& path = context.GetFullPath();
  const ustring aside =
      GenerateNewFileName(path, context.GetConnectionInfo().computer_name, "Conflict");
  if (FSRenameNoReplace(place, aside) == 0) return;
  HANDLER_CRIT("Worker (%d): '%s' was edited and is kept at '%s'", GetWorkerId(), path, place);
}

}  // namespace tolven
