#include "server/protocol/content-work.h"

#include <memory>

#include "lib/temp-file.h"
#include "platform/files.h"
#include "rsapi-cpp/delta-file-reader.h"
#include "rsapi-cpp/simple-file-reader.h"
#include "server/protocol/sha256-handler.h"

namespace tolven::server {

namespace {

constexpr std::uint32_t kBlockSize = 2048, kStrongSize = 8;
constexpr std::uint64_t kSmallestDelta = 4 * kBlockSize;
// A signature takes 24 bytes of memory for each block: 96 MiB for these.
constexpr std::uint64_t kLargestBasis = 8ULL << 30;

}  // namespace

std::uint64_t FileSize(const ustring& path) {
  platform::NodeInfo info;
  return platform::files().Stat(path, info).ok() ? info.size : 0;
}

bool ContentWork::Hash(const ustring& path, ustring& md4) {
  int result = -1;
  const bool open = long_work_.Run(FileSize(path), [&] {
    SimpleFileReader reader;
    reader.setAbortFlag(long_work_.AbortFlag());
    reader.setFile(path);
    reader.setHashString(md4);
    result = reader.readFile();
  });
  return open && result == 0;
}

bool ContentWork::Patch(const ustring& basis, const ustring& delta, const ustring& target,
                        std::uint64_t size, ustring& md4, std::string& sha256) {
  int result = -1;
  const bool open = long_work_.Run(size + FileSize(delta), [&] {
    DeltaFileReader reader;
    reader.setAbortFlag(long_work_.AbortFlag());
    reader.setFile(basis, delta);
    reader.setNewFile(target);
    reader.setMaxSize(size);
    reader.setHashString(md4);
    reader.setFurtherHandler(std::make_unique<Sha256Handler>(target, size, sha256));
    result = reader.readFile();
  });
  return open && result == 0;
}

bool ContentWork::MakeDelta(const ustring& basis, const ustring& target, const ustring& delta) {
  const std::uint64_t basis_size = FileSize(basis), target_size = FileSize(target);
  if (basis_size < kSmallestDelta || target_size < kSmallestDelta || basis_size > kLargestBasis) {
    return false;
  }
  bool made = false;
  const bool open = long_work_.Run(basis_size + target_size, [&] {
    Gate::Pass pass(service_.deltas);
    TempFile signature(service_.transfers.IncomingFolder());
    if (signature.create() != 0) return;
    SimpleFileReader signer, reader;
    signer.setAbortFlag(long_work_.AbortFlag());
    signer.setFile(basis);
    signer.setSignature(signature.getPath(), kBlockSize, kStrongSize);
    reader.setAbortFlag(long_work_.AbortFlag());
    reader.setFile(target);
    reader.setDelta(delta, signature.getPath());
    made = signer.readFile() == 0 && reader.readFile() == 0 && FileSize(delta) < target_size;
  });
  return open && made;
}

}  // namespace tolven::server
