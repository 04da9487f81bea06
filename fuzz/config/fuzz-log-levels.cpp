// Any bytes as a log-level file: no category comes from elsewhere, and each is of what was read.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "lib/log-levels.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tolven::Config config;
  if (config.parse({reinterpret_cast<const char*>(data), size}) < 0) return 0;
  tolven::LogLevels levels;
  tolven::MergeLogLevels(config, levels);
  for (const auto& [category, level] : levels) {
    const tolven::ustring& text = config[category];
    if (text.find_first_of("0123456789") == tolven::ustring::npos) std::abort();
    if (level < 0 && text.find('-') == tolven::ustring::npos) std::abort();
  }
  return 0;
}
