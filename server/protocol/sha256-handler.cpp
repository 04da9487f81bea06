#include "server/protocol/sha256-handler.h"

#include <utility>

namespace tolven::server {

Sha256Handler::Sha256Handler(ustring target, std::uint64_t size, std::string& result)
    : target_(std::move(target)), size_(size), result_(result) {}

int Sha256Handler::begin() {
  if (size_ < HashLane::kWorthAThread) return 0;
  if (!platform::files().Open(target_, platform::OpenMode::kModify, *file_.receive()).ok()) {
    return -1;
  }
  lane_ = HashLane::Start(
      [this](const std::string& piece) { sum_.Update(piece.data(), piece.size()); });
  return 0;
}

int Sha256Handler::update(const void* data, std::size_t size) {
  if (lane_ == nullptr) {
    sum_.Update(data, size);
    return 0;
  }
  lane_->Add(std::make_shared<const std::string>(static_cast<const char*>(data), size));
  // The pieces before this one are in the file.
  writeback_.Written(file_.get(), size);
  return 0;
}

int Sha256Handler::end() {
  if (lane_ != nullptr) lane_->Finish();
  file_.Reset();
  result_ = sum_.Finish();
  return result_.empty() ? -1 : 0;
}

}  // namespace tolven::server
