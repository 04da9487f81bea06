#include "lib/error-table.h"

#include <array>

namespace tolven {

namespace {

// Peers and administrators know these texts, misspellings included.
constexpr std::array<const char*, ErrorCodes::ERR_MAX> kTexts = {
    "Successful",
    "Interrupted",
    "I/O error",
    "System error",
    "Invalid argument",
    "Protocal error",
    "Authentication failure",
    "Server error",
    "Event conflict",
    "Connection timeout",
    "Incompatible version",
    "No such entry",
    "Invalid username",
    "Password and username not matched",
    "VRK disabled",
    "User quota not enough",
    "Disk is full",
    "Sync Folder is miss",
    "View missing/invalid",
    "no permission ",
    "pull event by path, but the path is missing",
    "connection about by setting flag",
    "Local Disk is full",
    "file locked or no permission",
    "ssl certificate verify fail",
    "permission is read-only",
    "no permission to access",
    "retry server download on local modified",
    "server enc share not mounted",
    "sync folder not mounted",
    "sync folder not mounted",
    "no access permission",
    "build number changed",
    "file too big",
};

}  // namespace

const char* ErrorText(int code) {
  if (code > 0 || code <= -ErrorCodes::ERR_MAX) return "Unknown error";
  return kTexts[static_cast<std::size_t>(-code)];
}

}  // namespace tolven
