// A sum that a thread of its own makes of pieces while the next ones arrive.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "platform/mutex.h"

namespace tolven::server {

class HashLane {
 public:
  // A smaller content is hashed sooner than a thread is started.
  static constexpr std::uint64_t kWorthAThread = 4 * 1024 * 1024;
  using Piece = std::shared_ptr<const std::string>;
  using Update = std::function<void(const std::string& piece)>;

  // `update` runs on the lane's thread, for each piece in order. Null when there is no thread to
  // be had.
  static std::unique_ptr<HashLane> Start(Update update);
  ~HashLane();
  HashLane(const HashLane&) = delete;
  HashLane& operator=(const HashLane&) = delete;

  // Waits while much is pending, so that memory stays bounded.
  void Add(Piece piece) EXCLUDES(mutex_);
  // Returns once all pieces were taken in; none may follow.
  void Finish() EXCLUDES(mutex_);

 private:
  static constexpr std::size_t kMostPending = 2 * 1024 * 1024;  // bytes

  explicit HashLane(Update update);
  void Loop() EXCLUDES(mutex_);

  const Update update_;
  Mutex mutex_;
  CondVar changed_;
  std::deque<Piece> pending_ GUARDED_BY(mutex_);
  std::size_t pending_bytes_ GUARDED_BY(mutex_) = 0;
  bool finished_ GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace tolven::server
