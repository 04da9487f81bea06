// The kernel tells every single write to a file. Of those to one file that follow each other, only
// the first is passed on at once and then one a second, the last included.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tolven::platform {

class ModifyThrottle {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // Whether a write to `path` is to be told now.
  bool Admit(const std::string& path, Time now);
  // The file was closed, moved or removed: what was held back is told by that.
  void Forget(const std::string& path) { files_.erase(path); }
  // Appends the files with writes whose time has come.
  void TakeDue(Time now, std::vector<std::string>& paths);
  // When TakeDue will have something; none when nothing is held back.
  std::optional<Time> NextDue() const;
  void Clear() { files_.clear(); }

 private:
  struct File {
    Time until;  // what comes before is held back
    bool held = false;
  };
  std::map<std::string, File> files_;
};

}  // namespace tolven::platform
