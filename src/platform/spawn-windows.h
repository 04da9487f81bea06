// Child processes.
#pragma once

#include <string>

#include "platform/process.h"

namespace tolven::platform {

// As in Process. ChildProcess::handle is the process's handle until its end was seen; then it is
// closed and a number below -1 keeps the exit status.
Status SpawnChild(const std::vector<ustring>& words, const ustring& output_path,
                  ChildProcess& child);
bool WaitForChild(ChildProcess& child, int timeout_ms, int& exit_status);
Status KillChild(ChildProcess& child);
bool IsProcessRunning(std::int64_t pid);

}  // namespace tolven::platform
