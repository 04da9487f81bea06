// The table of mounted file systems, as /proc/self/mountinfo tells it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tolven::platform {

struct Mount {
  int id = 0;
  std::string device;  // "major:minor"
  std::string point;   // where it is mounted
  std::string type;    // "ext4", "fuse.sshfs" and so on
};

// Lines that do not have the form are left out.
std::vector<Mount> ParseMounts(std::string_view text);

// The file system that holds `path`: the last one mounted at the longest prefix. Null when none is.
const Mount* FindMount(const std::vector<Mount>& mounts, std::string_view path);

// The mount points of `before` that are none any more, in their order.
std::vector<std::string> GonePoints(const std::vector<Mount>& before,
                                    const std::vector<Mount>& after);

}  // namespace tolven::platform
