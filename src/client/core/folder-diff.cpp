#include "client/core/folder-diff.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "client/core/recent-commits.h"
#include "client/core/root-proof.h"
#include "client/event-path.h"
#include "client/file-event-db.h"
#include "lib/black-list2.h"
#include "lib/file-op.h"
#include "lib/log.h"

namespace tolven {

namespace {

constexpr char kCategory[] = "worker_debug";

bool IsProved(const Registry::Entry& entry) {
  return entry.root_proof == nullptr || entry.root_proof->IsProved();
}

bool IsAbsent(const Registry::Entry& entry, const ustring& path) {
  FILE_INFO info;
  return FSStat(JoinPath(entry.local_path, path.view()), info, true) >= 0 && !info.isExist &&
         IsProved(entry);
}

void Park(const Registry::Entry& entry, const ustring& path, bool is_dir) {
  Event event;
  event.m_type = Event::EV_REMOVE;
  event.m_sess_id = entry.sess_id;
  event.m_path = path;
  if (is_dir) event.setDir();
  const FilteredEvent parked =
      FileEventDB::ToFilteredEvent(event, FilteredEvent::FILTERED_SELECTIVE_SYNC);
  if (entry.event_db == nullptr || entry.event_db->setLocalFilteredEvent(parked) != 0) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] event-helper(%d): Failed to set filtered local event [%s]\n",
                   __LINE__, path);
  }
}

}  // namespace

FolderDiff::FolderDiff(const Registry::Entry& entry, const ustring& root, bool do_merge,
                       const std::atomic<int>* abort_flag)
    : entry_(std::make_shared<Registry::Entry>(entry)),
      prefix_(root.view() == "/" ? ustring() : root),
      do_merge_(do_merge),
      abort_flag_(abort_flag) {}

int FolderDiff::Run(const FileList& fs_list, const FileList& db_list) {
  if (fs_list.incomplete() || db_list.incomplete()) return -1;
  if (Walk(fs_list, db_list) != 0 || DropWhatStays() != 0) return -1;
  if (has_missing_ && !IsProved(*entry_)) return -1;
  // The walk went down; upwards, folders are queued before what is in them.
  std::for_each(plan_.rbegin(), plan_.rend(), [](const EventRecord& record) { record.Push(); });
  return 0;
}

// Each entry is stepped over once. The lists go by component and the test by whole paths, so that
// beside a name like "a-b" an entry of both may look as if it were in one list only, and come up
// again as one of the other.
int FolderDiff::Walk(const FileList& fs_list, const FileList& db_list) {
  FileList::reverse_iterator f = fs_list.rbegin(), d = db_list.rbegin();
  const FileList::reverse_iterator f_end = fs_list.rend(), d_end = db_list.rend();
  while (f != f_end || d != d_end) {
    if (Aborted()) return -1;
    const int order = d == d_end ? 1 : f == f_end ? -1 : f->path.view().compare(d->path.view());
    if (order > 0) {
      Upload(*f);
    } else if (order < 0) {
      Missing(*d);
    } else {
      Compare(*f, *d);
    }
    if (order >= 0) ++f;
    if (order <= 0) ++d;
  }
  return 0;
}

void FolderDiff::Compare(const Entry& on_disk, const Entry& known) {
  if (on_disk.is_dir() != known.is_dir()) {
    // In a merge, too: a fetch of what was there before would undo the upload.
    Upload(on_disk);
  } else if (on_disk.is_file() && IsModified(on_disk, known)) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] event-helper(%d): GenerateEventByDiff: '%s' is locally modified "
                   L"...\n",
                   __LINE__, on_disk.path);
    Upload(on_disk);
  } else {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] event-helper(%d): GenerateEventByDiff: skipping: %s.\n", __LINE__,
                   on_disk.path);
  }
}

bool FolderDiff::IsModified(const Entry& on_disk, const Entry& known) const {
  const std::uint32_t kept_bits = entry_->isMSDOS ? ~std::uint32_t{1} : ~std::uint32_t{0};
  const FileList::Attribute &a = on_disk.attr, &b = known.attr;
  return ((a.mtime ^ b.mtime) & kept_bits) != 0 || a.size != b.size || a.acl_hash != b.acl_hash ||
         RecentCommits::getInstance().NeedsHash(entry_->sess_id, prefix_ + on_disk.path);
}

void FolderDiff::Upload(const Entry& on_disk) {
  plan_.emplace_back(entry_, prefix_ + on_disk.path, on_disk.is_dir(), EventRecord::UPLOAD_LOCAL);
  has_uploads_ = true;
}

void FolderDiff::Missing(const Entry& known) {
  plan_.emplace_back(entry_, prefix_ + known.path, known.is_dir(),
                     do_merge_ ? EventRecord::DOWNLOAD_REMOTE : EventRecord::REMOVE_REMOTE);
  has_missing_ = true;
}

// Of what looked missing, leaves out what is there and what a filter keeps out.
int FolderDiff::DropWhatStays() {
  if (!has_missing_) return 0;
  std::unordered_set<std::string_view> uploads;
  if (has_uploads_) {
    for (const EventRecord& record : plan_) {
      if (record.type == EventRecord::UPLOAD_LOCAL) uploads.insert(record.path.view());
    }
  }
  std::vector<EventRecord> kept;
  for (const EventRecord& record : plan_) {
    if (Aborted()) return -1;
    const bool stays = record.type == EventRecord::UPLOAD_LOCAL ||
                       (!uploads.contains(record.path.view()) &&
                        TestFilteredDelete(*entry_, record.path, record.is_dir) == 0);
    if (stays) kept.push_back(record);
  }
  plan_ = std::move(kept);
  return 0;
}

int TestFilteredDelete(const Registry::Entry& entry, const ustring& path, bool is_dir) {
  if (entry.black_list == nullptr) return 0;
  const int blocked =
      is_dir ? entry.black_list->TestDirectoryPath(path) : entry.black_list->TestFilePath(path);
  if (blocked == 0) return 0;
  if (FileEventDB::IsValidFilterType(blocked) && IsAbsent(entry, path)) {
    Park(entry, path, is_dir);
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] event-helper(%d): TestFilteredDeleteEvent: filter '%s'. (blocked: "
                   L"%d)\n",
                   __LINE__, path, blocked);
  }
  return 1;
}

}  // namespace tolven
