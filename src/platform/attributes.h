// What the attributes of a Windows file or folder say. Numbers and not the system's header, so that
// every platform can test it.
#pragma once

#include <cstdint>

#include "platform/files.h"

namespace tolven::platform {

inline constexpr std::uint32_t kReadOnlyAttribute = 0x1;

// A link or junction counts as a link, whatever it leads to. Only `kind`, `mode` and the flags of
// the result are set.
NodeInfo InfoFromAttributes(std::uint32_t attributes);

// Between the system's times, 100 ns since 1601, and nanoseconds since 1970. What lies before 1601
// becomes 1601.
std::int64_t FromFileTime(std::uint32_t high, std::uint32_t low);
std::uint64_t ToFileTime(std::int64_t ns);

}  // namespace tolven::platform
