// "upload" and "resume_upload".
#include <algorithm>

#include "lib/proto-constants.h"
#include "server/protocol/access.h"
#include "server/protocol/command.h"
#include "server/protocol/content-work.h"
#include "server/protocol/path-rule.h"
#include "server/protocol/record.h"
#include "server/store/content-store.h"

namespace tolven::server {

namespace {

// Paths of one content that are looked at for one that the user may read.
constexpr std::size_t kMostTried = 1000, kTriedAtOnce = 100;

// One upload, step by step. Every step gives SPROTO_ERR_OK or the code of a refusal.
class Uploader {
 public:
  // `received` holds the data of the request when they came in pieces, else it is empty.
  Uploader(Command& command, ustring received)
      : command_(command),
        metadata_(command.service.metadata),
        file_(command.request["file"]),
        is_dir_(command.request["is_dir"].asBool()),
        base_(command.request["sync_id"].asUInt64()),
        received_(std::move(received)) {
    if (received_.empty()) received_ = file_["data"].asBinary().path;
  }

  std::uint32_t Run() {
    std::uint32_t code = FindTarget();
    if (code == SPROTO_ERR_OK) code = CheckRight();
    if (code == SPROTO_ERR_OK) code = CheckBase();
    if (code != SPROTO_ERR_OK) return code;
    if (command_.request["dry_run"].asBool()) return DryRun();
    if (!is_dir_) code = TakeContent();
    return code == SPROTO_ERR_OK ? Commit() : code;
  }

 private:
  std::uint32_t FindTarget() {
    if (command_.view.read_only) return SPROTO_ERR_READ_ONLY;
    if (!IsStorableName(command_.path)) return SPROTO_ERR_UPLOAD_FILTERED;
    const int found = metadata_.FindNode(command_.view.id, command_.path, current_);
    if (found < 0) return SPROTO_ERR_INTERNAL;
    exists_ = found > 0 && !current_.is_removed;
    return SPROTO_ERR_OK;
  }

  std::uint32_t CheckRight() {
    const bool kind = exists_ ? current_.is_dir : is_dir_;
    Access access(command_);
    if (!access.CanSee(command_.path, kind)) return SPROTO_ERR_UPLOAD_NO_ACCESS;
    // A file in the place of a folder takes with it all that is below.
    const int allowed = exists_ && current_.is_dir && !is_dir_
                            ? access.CanRemove(current_)
                            : access.CanWrite(command_.path, kind);
    if (allowed < 0) return SPROTO_ERR_INTERNAL;
    return allowed > 0 ? SPROTO_ERR_OK : SPROTO_ERR_UPLOAD_NO_PERMISSION;
  }

  // Once more in the end, together with the change itself; here so that nothing is received, hashed
  // or patched in vain.
  std::uint32_t CheckBase() {
    if (base_ != 0 && !exists_) return SPROTO_ERR_UPLOAD_NOBASE;
    if (base_ != 0 && base_ != current_.sync_id) return SPROTO_ERR_UPLOAD_BASE_CHANGED;
    if (base_ == 0 && exists_ && current_.is_dir != is_dir_) return SPROTO_ERR_CONFLICT_PATH;
    return SPROTO_ERR_OK;
  }

  std::uint32_t DryRun();
  int FindKnown(std::uint64_t id);
  std::uint32_t TakeContent();
  std::uint32_t TakeKnown();
  std::uint32_t TakeReceived();
  std::uint32_t TakeDelta(std::uint64_t size);
  std::uint32_t Store(const ustring& path, const ustring& md4, std::uint64_t size);
  std::uint32_t Commit();
  void AddVersion(const Node& node);

  Command& command_;
  Metadata& metadata_;
  const PObject& file_;
  const bool is_dir_;
  const std::uint64_t base_;
  ustring received_;
  Node current_;
  bool exists_ = false;
  Content content_;
  const std::string* bytes_ = nullptr;  // of a content that does not go into the content store
};

// Looks in the store for what the client told the sums of: 1 with `content_` set, 0, -1. Sums are
// no secret, so a content counts only when the user could have it from some path anyway. `id` 0:
// any.
int Uploader::FindKnown(std::uint64_t id) {
  Access access(command_, true);
  const std::string md4 = file_["hash"].asString().str();
  const std::uint64_t size = file_["size"].asUInt64();
  KnownContent last;
  for (std::size_t tried = 0; tried < kMostTried; tried += kTriedAtOnce) {
    std::vector<KnownContent> page;
    if (metadata_.ListKnownContents(command_.view.id, md4, size, last, kTriedAtOnce, page) < 0) {
      return -1;
    }
    for (const KnownContent& known : page) {
      if ((id != 0 && known.content.id != id) || !access.CanRead(known.path, false)) continue;
      content_ = known.content;
      return 1;
    }
    if (page.size() < kTriedAtOnce) return 0;
    last = page.back();
  }
  return 0;
}

// The request without its data: whether it would be taken, and whether the content is here already.
std::uint32_t Uploader::DryRun() {
  if (!is_dir_) {
    const int found = FindKnown(0);
    if (found < 0) return SPROTO_ERR_INTERNAL;
    if (found > 0) command_.answer["file"]["file_id"] = content_.id;
    std::uint64_t used = 0, freed = 0;
    if (metadata_.UsedBytes(command_.view.id, "/", used) < 0 ||
        metadata_.UsedBytes(command_.view.id, command_.path, freed) < 0) {
      return SPROTO_ERR_INTERNAL;
    }
    const std::uint64_t quota = command_.view.quota, size = file_["size"].asUInt64();
    used -= std::min(used, freed);  // goes with the change
    if (quota != 0 && size > quota - std::min(quota, used)) return SPROTO_ERR_QUOTA;
  }
  AddVersion(exists_ ? current_ : Node());
  return SPROTO_ERR_OK;
}

std::uint32_t Uploader::TakeContent() {
  if (!file_.isMap() || file_["refer"].asBool()) return TakeKnown();
  return TakeReceived();
}

// Content that the store has: of the version that the client changed, or found by a dry run.
std::uint32_t Uploader::TakeKnown() {
  const std::uint64_t id = file_["file_id"].asUInt64();
  if (id == 0) {
    if (base_ == 0 || current_.is_dir) return SPROTO_ERR_UPLOAD_NOBASE;
    content_ = current_.content;
    return SPROTO_ERR_OK;
  }
  const int found = FindKnown(id);
  if (found < 0) return SPROTO_ERR_INTERNAL;
  return found > 0 ? SPROTO_ERR_OK : SPROTO_ERR_UPLOAD;
}

// Content that came, whole or as a delta. Nothing but its hash proves that it is what the client
// means.
std::uint32_t Uploader::TakeReceived() {
  const std::uint64_t size = file_["size"].asUInt64();
  if (received_.empty() && !file_["data"].isBinary()) return SPROTO_ERR_UPLOAD;
  if (file_["is_delta"].asBool()) return TakeDelta(size);
  const ReceivedContents::Sums* const sums = command_.received.Find(received_);
  ustring md4;
  if (sums != nullptr) {
    md4 = sums->md4;
    content_.sha256 = sums->sha256;
  } else if (received_.empty() || FileSize(received_) != size ||
             !ContentWork(command_.service, command_.long_work).Hash(received_, md4)) {
    return SPROTO_ERR_UPLOAD;
  }
  const bool is_kept = sums != nullptr && received_.empty();
  if ((is_kept ? sums->bytes.size() : FileSize(received_)) != size ||
      md4 != file_["hash"].asString()) {
    return SPROTO_ERR_UPLOAD;
  }
  if (!is_kept) return Store(received_, md4, size);
  content_.md4 = md4.str();
  content_.size = size;
  bytes_ = &sums->bytes;
  return SPROTO_ERR_OK;
}

std::uint32_t Uploader::TakeDelta(std::uint64_t size) {
  if (base_ == 0 || current_.is_dir) return SPROTO_ERR_UPLOAD_NOBASE;
  ustring delta = received_;
  const ReceivedContents::Sums* const kept = command_.received.Find({});
  if (delta.empty() && kept != nullptr) delta = command_.NewTemporary(kept->bytes);
  const ustring basis = command_.FileOf(current_.content), path = command_.NewTemporary();
  if (delta.empty() || basis.empty() || path.empty()) return SPROTO_ERR_DISKFULL;
  ustring md4;
  ContentWork work(command_.service, command_.long_work);
  if (!work.Patch(basis, delta, path, size, md4, content_.sha256) || FileSize(path) != size ||
      md4 != file_["hash"].asString()) {
    return SPROTO_ERR_UPLOAD;
  }
  return Store(path, md4, size);
}

std::uint32_t Uploader::Store(const ustring& path, const ustring& md4, std::uint64_t size) {
  int result = -1;
  const bool open = command_.long_work.Run(
      size, [&] { result = command_.service.contents.Add(path, md4.str(), content_); });
  return open && result == 0 ? SPROTO_ERR_OK : SPROTO_ERR_INTERNAL;
}

std::uint32_t Uploader::Commit() {
  Put put;
  put.path = command_.path;
  put.is_dir = is_dir_;
  put.base = base_;
  put.max_id = command_.request["max_id"].asUInt64();
  put.content = content_;
  put.bytes = bytes_;
  put.uid = command_.user.uid;
  const PObject& mtime = command_.request["mtime"];
  if (mtime.hasMember("mtime") && !mtime["refer"].asBool()) put.mtime = mtime["mtime"].asUInt32();
  const PObject& exec_bit = command_.request["exec_bit"];
  if (exec_bit.hasMember("exec_bit") && !exec_bit["refer"].asBool()) {
    put.exec_bit = exec_bit["exec_bit"].asBool();
  }
  Node made;
  switch (metadata_.PutNode(command_.view.id, put, made)) {
    case Outcome::kDone:
      AddVersion(made);
      return SPROTO_ERR_OK;
    case Outcome::kNoBase:
      return SPROTO_ERR_UPLOAD_NOBASE;
    case Outcome::kBaseChanged:
      return SPROTO_ERR_UPLOAD_BASE_CHANGED;
    case Outcome::kConflict:
      return SPROTO_ERR_CONFLICT_PATH;
    case Outcome::kQuota:
      return SPROTO_ERR_QUOTA;
    default:
      return SPROTO_ERR_INTERNAL;
  }
}

void Uploader::AddVersion(const Node& node) {
  command_.answer["is_dir"] = node.is_dir;
  command_.answer["sync_id"] = node.sync_id;
  command_.answer["max_id"] = node.max_id;
  AddAttributes(node, command_.service.options.build, command_.answer);
}

}  // namespace

std::uint32_t Upload(Command& command) { return Uploader(command, ustring()).Run(); }

// The data of the request are what the server does not hold yet.
std::uint32_t ResumeUpload(Command& command) {
  auto claim = TakeToken(command);
  if (!claim) return SPROTO_ERR_RESUME_TOKEN;
  const PObject::binary_type& data = command.request["file"]["data"].asBinary();
  ustring received = data.path;
  if (claim->PartSize() < claim->StartOf(command.order)) return SPROTO_ERR_RESUME_OFFSET;
  if (claim->PartSize() > 0) {
    bool joined = true;
    const bool open = data.empty() || command.long_work.Run(data.length, [&] {
      joined = claim->Add(data.path, data.length, command.order);
    });
    if (!open || !joined) return SPROTO_ERR_RESUME;
    received = claim->PartPath();
  }
  const std::uint32_t code = Uploader(command, received).Run();
  if (command.long_work.AbortFlag()->load() == 0) {
    claim->Forget();
  } else if (!received.empty() && received == data.path) {
    (void)claim->Add(data.path, data.length, command.order);  // for the next try
  }
  return code;
}

}  // namespace tolven::server
