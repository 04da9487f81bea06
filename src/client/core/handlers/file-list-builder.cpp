#include "client/core/handlers/file-list-builder.h"

#include "client/core/handlers/handler-log.h"
#include "client/event-path.h"

namespace tolven {

namespace {

const char* Source() { return "rescan-handler"; }

}  // namespace

FileListBuilder::FileListBuilder(const EventContext& context, const ustring& root, int worker,
                                 FileList& list)
    : old_recycle_bin_(JoinPath(context.GetLocalWatch(), "#recycle")),
      root_length_(root.view().ends_with('/') ? root.size() - 1 : root.size()),
      worker_id_(worker),
      list_(list) {}

bool FileListBuilder::operator()(const DIR_ENTRY& entry, const ustring& path) {
  if (IsLeftOut(entry, path)) return true;
  if (entry.type == FT_DIR) {
    AddDirectory(entry, path);
  } else if (entry.type == FT_FILE) {
    AddFile(entry, path);
  }
  return true;
}

// The session's own folders with all that is in them; the working directory was passed over by the
// walk.
bool FileListBuilder::IsLeftOut(const DIR_ENTRY& entry, const ustring& path) const {
  if (!path.view().starts_with(old_recycle_bin_.view())) return false;
  return path.size() == old_recycle_bin_.size() ? entry.type == FT_DIR
                                                : path[old_recycle_bin_.size()] == '/';
}

void FileListBuilder::AddDirectory(const DIR_ENTRY& entry, const ustring& path) {
  const std::string_view name = path.view().substr(root_length_);
  HANDLER_DEBUG("Worker (%d): Local list add directory '%s'.", worker_id_, name);
  if (list_.AddDirectoryAt(name, entry.mtime, {}) < 0) {
    HANDLER_DEBUG("Worker (%d): Local list fail to add directory '%s'.", worker_id_, name);
  }
}

void FileListBuilder::AddFile(const DIR_ENTRY& entry, const ustring& path) {
  const std::string_view name = path.view().substr(root_length_);
  HANDLER_DEBUG("Worker (%d): Local list add file '%s'.", worker_id_, name);
  if (list_.AddNewFileAt(name, entry.mtime, entry.size, {}) < 0) {
    HANDLER_DEBUG("Worker (%d): Local list fail to add directory '%s'.", worker_id_, name);
  }
}

}  // namespace tolven
