// Child processes.
#pragma once

#include "platform/process.h"

namespace tolven::platform {

// As in Process. Once the end of a child was seen, ChildProcess::handle holds its exit status
// (128 + signal for a killed one) and its id, which may belong to someone else by then, is not used
// any more.
Status SpawnChild(const std::vector<ustring>& words, const ustring& output_path,
                  ChildProcess& child);
bool WaitForChild(ChildProcess& child, int timeout_ms, int& exit_status);
Status KillChild(ChildProcess& child);
bool IsProcessRunning(std::int64_t pid);

}  // namespace tolven::platform
