// What the sources of the file operations share.
#pragma once

#include <mutex>

#include "lib/file-op.h"
#include "platform/paths.h"

namespace tolven::file_op {

inline constexpr const char* kCategory = "file_op_debug";

FILE_TYPE TypeOf(const platform::NodeInfo& info);
std::uint32_t Seconds(std::int64_t nanoseconds);
// The folder that holds `path`; a root is its own.
ustring ParentOf(const ustring& path);

// Renames of workers and of the folder watcher must not overlap.
extern std::mutex rename_mutex;

}  // namespace tolven::file_op
