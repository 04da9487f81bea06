// "download" and "resume_download".
#include "lib/proto-constants.h"
#include "server/protocol/access.h"
#include "server/protocol/command.h"
#include "server/protocol/content-work.h"

namespace tolven::server {

namespace {

// Notes on a token: the whole of a content, or a delta against another one.
std::string WholeOf(const Node& version) { return "whole " + version.content.sha256; }
std::string DeltaOf(const Node& version, const Node& basis) {
  return "delta " + version.content.sha256 + " " + basis.content.sha256;
}

// The version asked for, else the current one.
std::uint32_t FindVersion(Command& command, Node& version) {
  Metadata& metadata = command.service.metadata;
  int found = metadata.FindNode(command.view.id, command.path, version);
  if (found < 0) return SPROTO_ERR_INTERNAL;
  if (found == 0 || version.is_removed) return SPROTO_ERR_DOWNLOAD_NOFILE;
  if (!Access(command).CanRead(version.path, version.is_dir)) return SPROTO_ERR_DOWNLOAD_NO_ACCESS;
  const std::uint64_t wanted = command.request["target_sync_id"].asUInt64();
  if (wanted == 0 || wanted == version.sync_id) return SPROTO_ERR_OK;
  Node older;
  found = metadata.FindVersion(command.view.id, command.path, wanted, older);
  if (found < 0) return SPROTO_ERR_INTERNAL;
  if (found > 0 && !older.is_removed) version = older;
  return SPROTO_ERR_OK;
}

// The content of the version that the client holds, when the store still has it.
bool FindBasis(Command& command, Node& basis) {
  const std::uint64_t held = command.request["sync_id"].asUInt64();
  return held != 0 &&
         command.service.metadata.FindVersion(command.view.id, command.path, held, basis) > 0 &&
         !basis.is_dir && !basis.is_removed && basis.content.size > 0;
}

// Chooses between a delta and the whole file. A transfer that goes on stays with what its first
// request chose.
class Sender {
 public:
  Sender(Command& command, const Node& version, Transfers::Claim* claim)
      : command_(command), version_(version), claim_(claim) {}

  std::uint32_t Fill() {
    const std::uint64_t offset = command_.request["file"]["offset"].asUInt64();
    if (claim_ != nullptr && offset > 0) source_ = claim_->Source();
    ustring path = command_.FileOf(version_.content);
    if (path.empty()) return SPROTO_ERR_INTERNAL;
    const bool is_delta = TryDelta(path);
    if (command_.long_work.AbortFlag()->load() != 0) return SPROTO_ERR_INTERNAL;
    const std::string chosen = is_delta ? delta_source_ : WholeOf(version_);
    if (!source_.empty() && source_ != chosen) return SPROTO_ERR_RESUME_OFFSET;
    const std::uint64_t size = FileSize(path);
    if (claim_ != nullptr && (offset > size || (offset > 0 && source_.empty()))) {
      return SPROTO_ERR_RESUME_OFFSET;
    }
    if (claim_ != nullptr) claim_->SetSource(chosen);
    PObject& file = command_.answer["file"];
    file["refer"] = false;
    file["is_delta"] = is_delta;
    file["size"] = version_.content.size;
    file["hash"] = ustring(version_.content.md4);
    PObject::binary_type data;
    data.path = path;
    data.offset = claim_ == nullptr ? 0 : offset;
    data.length = size - data.offset;
    file["data"] = data;
    return SPROTO_ERR_OK;
  }

 private:
  bool TryDelta(ustring& path) {
    Node basis;
    if (source_ == WholeOf(version_) || !FindBasis(command_, basis)) return false;
    delta_source_ = DeltaOf(version_, basis);
    const ustring held = command_.FileOf(basis.content), delta = command_.NewTemporary();
    ContentWork work(command_.service, command_.long_work);
    if (held.empty() || delta.empty() || !work.MakeDelta(held, path, delta)) return false;
    path = delta;
    return true;
  }

  Command& command_;
  const Node& version_;
  Transfers::Claim* claim_;
  std::string source_, delta_source_;
};

std::uint32_t Send(Command& command, Transfers::Claim* claim) {
  Node version;
  const std::uint32_t code = FindVersion(command, version);
  if (code != SPROTO_ERR_OK) return code;
  PObject& answer = command.answer;
  answer["path"] = ustring(command.path);
  answer["is_dir"] = version.is_dir;
  answer["sync_id"] = version.sync_id;
  answer["max_id"] = version.max_id;
  // The client holds this very version, which is all that it needs to know.
  if (command.request["sync_id"].asUInt64() == version.sync_id) return SPROTO_ERR_OK;
  if (command.request.hasMember("mtime")) {
    answer["mtime"]["refer"] = false;
    answer["mtime"]["mtime"] = version.mtime;
  }
  if (version.is_dir || !command.request.hasMember("file")) return SPROTO_ERR_OK;
  return Sender(command, version, claim).Fill();
}

}  // namespace

std::uint32_t Download(Command& command) { return Send(command, nullptr); }

std::uint32_t ResumeDownload(Command& command) {
  auto claim = TakeToken(command);
  return claim ? Send(command, &*claim) : SPROTO_ERR_RESUME_TOKEN;
}

}  // namespace tolven::server
