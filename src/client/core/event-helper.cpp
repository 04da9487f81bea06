#include "client/core/event-helper.h"

#include "client/core/event-context.h"
#include "client/core/folder-diff.h"
#include "client/core/root-proof.h"
#include "client/string-buffer.h"

namespace tolven {

namespace {

constexpr std::size_t kFirstChunk = 0x200;

bool IsRootProved(const EventContext& context) {
  const shared_pointer<RootProof>& proof = context.GetEntry().root_proof;
  return proof == nullptr || proof->IsProved();
}

}  // namespace

int EventHelper::GenerateEventByDiff(EventContext& context, const ustring& root,
                                     const FileList& fs_list, const FileList& db_list,
                                     bool do_merge, const std::atomic<int>* abort_flag) {
  return FolderDiff(context.GetEntry(), root, do_merge, abort_flag).Run(fs_list, db_list);
}

int EventHelper::CompareFolder(EventContext& context, const ustring& root,
                               const ListDatabase& list_database, const ListDisk& list_disk,
                               bool do_merge, const std::atomic<int>* abort_flag) {
  StringBuffer names(kFirstChunk);
  FileList db_list(names), fs_list(names);
  if (!IsRootProved(context)) return kRootNotProved;
  if (list_database(db_list) < 0) return -1;
  const int listed = list_disk(fs_list);
  if (!IsRootProved(context)) return kRootNotProved;
  if (listed < 0) return -1;
  return GenerateEventByDiff(context, root, fs_list, db_list, do_merge, abort_flag);
}

int EventHelper::TestFilteredDeleteEvent(EventContext& context, const ustring& path, bool is_dir) {
  return TestFilteredDelete(context.GetEntry(), path, is_dir);
}

}  // namespace tolven
