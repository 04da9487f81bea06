#include "server/protocol/received-contents.h"

#include <utility>

#include "server/store/metadata.h"

namespace tolven::server {

void ReceivedContents::Clear(bool keep_small) {
  keep_next_ = keep_small;
  reception_.reset();
  sums_.clear();
}

const ReceivedContents::Sums* ReceivedContents::Find(const ustring& path) const {
  for (const Sums& each : sums_) {
    if (each.path == path) return &each;
  }
  return nullptr;
}

bool ReceivedContents::Keeps(std::uint64_t size) {
  return size <= kLargestSmallContent && std::exchange(keep_next_, false);
}

void ReceivedContents::Begin(const ustring& path, std::uint64_t size) {
  reception_ = std::make_unique<Reception>();
  Reception& reception = *reception_;
  reception.sums.path = path;
  if (reception.md4.begin() < 0) {
    reception_.reset();
    return;
  }
  if (size < HashLane::kWorthAThread) return;
  reception.md4_lane = HashLane::Start(
      [&](const std::string& piece) { (void)reception.md4.update(piece.data(), piece.size()); });
  reception.sha256_lane = HashLane::Start(
      [&](const std::string& piece) { reception.sha256.Update(piece.data(), piece.size()); });
}

void ReceivedContents::Stored(platform::NativeFile file, const char* data, std::size_t size) {
  if (reception_ == nullptr) return;
  Reception& reception = *reception_;
  if (reception.sums.path.empty()) {
    reception.sums.bytes.append(data, size);
  } else {
    reception.writeback.Written(file, size);
  }
  HashLane::Piece piece;
  if (reception.md4_lane != nullptr || reception.sha256_lane != nullptr) {
    piece = std::make_shared<const std::string>(data, size);
  }
  if (reception.md4_lane != nullptr) {
    reception.md4_lane->Add(piece);
  } else {
    (void)reception.md4.update(data, size);
  }
  if (reception.sha256_lane != nullptr) {
    reception.sha256_lane->Add(piece);
  } else {
    reception.sha256.Update(data, size);
  }
}

void ReceivedContents::End() {
  const std::unique_ptr<Reception> reception = std::move(reception_);
  if (reception == nullptr) return;
  if (reception->md4_lane != nullptr) reception->md4_lane->Finish();
  if (reception->sha256_lane != nullptr) reception->sha256_lane->Finish();
  Sums& sums = reception->sums;
  sums.sha256 = reception->sha256.Finish();
  if (reception->md4.end() < 0 || sums.sha256.empty()) return;
  sums.md4 = reception->md4.getResult();
  sums_.push_back(std::move(sums));
}

}  // namespace tolven::server
