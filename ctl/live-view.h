// Shows a monitor's snapshots: on a terminal as one picture that is redrawn in place, elsewhere as
// one line for each change.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "protocol/object.h"

namespace tolven::ctl {

class LiveView {
 public:
  // Draws, or prints what is new since the last call, to standard output. Used by one thread.
  explicit LiveView(bool on_terminal) : on_terminal_(on_terminal) {}

  void Show(const PObject& snapshot);

  // The picture, each line at most `columns` wide, at most `rows` of them.
  static std::vector<std::string> Picture(const PObject& snapshot, int columns, int rows);
  // The lines that tell what has changed since the last call with this object.
  std::vector<std::string> Changes(const PObject& snapshot);

 private:
  void Draw(const PObject& snapshot);

  const bool on_terminal_;
  int drawn_lines_ = 0;
  std::uint64_t last_number_ = 0;
  std::map<std::uint64_t, std::string> states_;   // of sessions, as printed last
  std::map<std::string, std::string> transfers_;  // running ones, by session and path
};

// "up to date (not settled yet)" and its like.
std::string StateText(const PObject& session);
// One line for a session: number, folders, state.
std::string SessionText(const PObject& session);

}  // namespace tolven::ctl
