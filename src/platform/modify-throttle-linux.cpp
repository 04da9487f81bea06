#include "platform/modify-throttle-linux.h"

namespace tolven::platform {

namespace {

constexpr auto kInterval = std::chrono::seconds(1);
// With more files at a time than this every write is told.
constexpr std::size_t kMostFiles = 1024;

}  // namespace

bool ModifyThrottle::Admit(const std::string& path, Time now) {
  const auto it = files_.find(path);
  if (it == files_.end()) {
    if (files_.size() < kMostFiles) files_[path] = {now + kInterval, false};
    return true;
  }
  it->second.held = true;
  return false;
}

void ModifyThrottle::TakeDue(Time now, std::vector<std::string>& paths) {
  for (auto it = files_.begin(); it != files_.end();) {
    File& file = it->second;
    if (now < file.until) {
      ++it;
    } else if (file.held) {
      paths.push_back(it->first);
      file = {now + kInterval, false};
      ++it;
    } else {
      it = files_.erase(it);
    }
  }
}

std::optional<ModifyThrottle::Time> ModifyThrottle::NextDue() const {
  std::optional<Time> due;
  for (const auto& [path, file] : files_) {
    if (file.held && (!due || file.until < *due)) due = file.until;
  }
  return due;
}

}  // namespace tolven::platform
