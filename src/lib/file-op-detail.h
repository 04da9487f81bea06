// What the sources of the file operations share.
#pragma once

#include "lib/file-op.h"
#include "platform/paths.h"

namespace tolven::file_op {

inline constexpr const char* kCategory = "file_op_debug";

FILE_TYPE TypeOf(const platform::NodeInfo& info);
std::uint32_t Seconds(std::int64_t nanoseconds);

}  // namespace tolven::file_op
