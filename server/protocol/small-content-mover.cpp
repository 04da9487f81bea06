#include "server/protocol/small-content-mover.h"

#include <chrono>
#include <utility>
#include <vector>

#include "lib/log.h"
#include "lib/temp-file.h"
#include "server/protocol/fill-file.h"

namespace tolven::server {

namespace {

constexpr std::chrono::milliseconds kPause{1000};
constexpr std::size_t kBatch = 32;

}  // namespace

SmallContentMover::SmallContentMover(Metadata& metadata, ContentStore& contents, ustring folder)
    : metadata_(metadata),
      contents_(contents),
      folder_(std::move(folder)),
      thread_([this] { Run(); }) {}

SmallContentMover::~SmallContentMover() {
  {
    const MutexLock lock(mutex_);
    is_ending_ = true;
    ending_.NotifyAll();
  }
  thread_.join();
}

bool SmallContentMover::Pause() {
  const MutexLock lock(mutex_);
  if (!is_ending_) (void)ending_.WaitFor(mutex_, kPause);
  return !is_ending_;
}

void SmallContentMover::Run() {
  std::uint64_t seen = 0;
  while (Pause()) {
    const std::uint64_t last = metadata_.LastSmallContent();
    const bool is_quiet = last == std::exchange(seen, last);
    while (MoveSome() && is_quiet && metadata_.LastSmallContent() == last) {
      const MutexLock lock(mutex_);
      if (is_ending_) return;
    }
  }
}

bool SmallContentMover::MoveSome() {
  std::vector<SmallContent> batch;
  if (metadata_.ListSmallContents(kBatch, batch) != 0 || batch.empty()) return false;
  std::vector<std::uint64_t> moved;
  for (const SmallContent& small : batch) {
    if (Move(small)) moved.push_back(small.content.id);
  }
  // What cannot be moved stays where it is, and is tried again after a pause.
  return metadata_.DropBytes(moved) == Outcome::kDone && moved.size() == batch.size();
}

bool SmallContentMover::Move(const SmallContent& small) {
  TempFile file(folder_);
  Content content = small.content;
  if (file.create() == 0 && FillFile(file.getPath(), small.bytes) &&
      contents_.Add(file.getPath(), content.md4, content) == 0) {
    return true;
  }
  Logger::LogMsg(Logger::L_ERR, "server",
                 L"[ERROR] small-content-mover(%d): '%s' stays with the metadata\n", __LINE__,
                 small.content.sha256);
  return false;
}

}  // namespace tolven::server
