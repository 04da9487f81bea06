// What happens in one round of the randomised test: drawn from a seed, and from nothing else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tolven::test {

enum class Action {
  // What a user does in one of the folders.
  kWrite,      // a new content in place, in a file that is made when there is none
  kWriteSlow,  // the same in two halves
  kEdit,       // a new content of the same size, in place
  kEditTwice,  // the same once more at once, most often within the same second
  kSave,       // a new content by a rename over the old file
  kTouch,      // another time
  kRemove,     // a file, or a folder with all that is in it
  kRename,     // a file or a folder, also over a file
  kMakeFolder,
  kChangeKind,  // a file becomes a folder with a file in it, a folder a file
  kTidy,        // removes the copies that conflicts left
  // What happens to one of the daemons.
  kPause,
  kResume,
  kHide,  // a rule of the black list, chosen by `size`
  kShow,
  kAddAnew,  // adds the session anew, to be merged
  kKill,
  kStart,
  kTakeRoot,
  kGiveRoot,
  kDropLinks,  // its connections to the server
  kFailCalls,  // some of its calls of the platform; `size` tells which and how many
  kStopFaults,
  // What happens to the server.
  kKillServer,
  kStartServer,
};

struct Operation {
  Action action = Action::kWrite;
  int side = 0;  // 0 or 1
  std::string path, other;
  std::size_t size = 0;  // of a new content, in bytes
  int wait_ms = 0;       // afterwards
};

// The `count` user's operations of a round, with disturbances among them. Everything that is
// disturbed is mended again in the plan, or else at its end by whoever runs it.
std::vector<Operation> MakePlan(std::uint64_t seed, std::size_t count);

const char* ToText(Action action);
std::string ToText(const Operation& operation);

}  // namespace tolven::test
