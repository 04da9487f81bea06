#include "server/protocol/hash-lane.h"

#include <system_error>
#include <utility>

namespace tolven::server {

std::unique_ptr<HashLane> HashLane::Start(Update update) {
  try {
    return std::unique_ptr<HashLane>(new HashLane(std::move(update)));
  } catch (const std::system_error&) {
    return nullptr;
  }
}

HashLane::HashLane(Update update) : update_(std::move(update)), thread_([this] { Loop(); }) {}

HashLane::~HashLane() { Finish(); }

void HashLane::Add(Piece piece) {
  MutexLock lock(mutex_);
  while (pending_bytes_ >= kMostPending) changed_.Wait(mutex_);
  pending_bytes_ += piece->size();
  pending_.push_back(std::move(piece));
  changed_.NotifyAll();
}

void HashLane::Finish() {
  {
    MutexLock lock(mutex_);
    finished_ = true;
    changed_.NotifyAll();
  }
  if (thread_.joinable()) thread_.join();
}

void HashLane::Loop() {
  for (;;) {
    Piece piece;
    {
      MutexLock lock(mutex_);
      while (pending_.empty() && !finished_) changed_.Wait(mutex_);
      if (pending_.empty()) return;
      piece = std::move(pending_.front());
      pending_.pop_front();
      pending_bytes_ -= piece->size();
      changed_.NotifyAll();
    }
    update_(*piece);
  }
}

}  // namespace tolven::server
