#include "lib/log-levels.h"

namespace tolven {

void MergeLogLevels(const Config& config, LogLevels& levels) {
  for (const auto& [category, text] : config) {
    int level = 0;
    if (Config::ParseInt(text.view(), level)) levels[category] = level;
  }
}

}  // namespace tolven
