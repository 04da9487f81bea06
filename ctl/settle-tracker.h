// Whether a session has come to rest. "uptodate" alone does not say so: it also holds right after a
// session was added, before its first comparison. Settled is a session that was up to date and
// connected, without a word from the daemon, for a while.
#pragma once

#include <chrono>
#include <cstdint>

namespace tolven::ctl {

class SettleTracker {
 public:
  static constexpr std::chrono::milliseconds kQuiet{12'000};

  // Times are those of the monotonic clock, in milliseconds.
  explicit SettleTracker(std::int64_t now) : quiet_since_(now) {}

  // Something was told of the session, or changed about it.
  void Disturb(std::int64_t now) { quiet_since_ = now; }
  // One look at the daemon's status.
  void Look(bool is_at_rest, std::int64_t now) {
    is_at_rest_ = is_at_rest;
    if (!is_at_rest) quiet_since_ = now;
  }
  bool IsSettled(std::int64_t now) const {
    return is_at_rest_ && now - quiet_since_ >= kQuiet.count();
  }

 private:
  bool is_at_rest_ = false;
  std::int64_t quiet_since_;
};

}  // namespace tolven::ctl
