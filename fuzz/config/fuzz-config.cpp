// Any bytes as a configuration file: what is accepted has clean keys and values, what is refused
// leaves nothing behind.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "lib/config.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tolven::Config config;
  config.set("before", "kept");
  const int result = config.parse({reinterpret_cast<const char*>(data), size});
  if (result < 0 && config.begin() != config.end()) std::abort();
  for (const auto& [key, value] : config) {
    constexpr char kKeyCharacters[] =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz-._";
    if (key.find_first_not_of(kKeyCharacters) != tolven::ustring::npos) std::abort();
    for (const char c : value.view()) {
      if (static_cast<unsigned char>(c) < 32 || c == 127) std::abort();
    }
  }
  return 0;
}
