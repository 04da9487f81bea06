// The maps that tell clients about objects of a view.
#pragma once

#include <cstdint>
#include <string_view>

#include "protocol/object.h"
#include "server/store/metadata.h"

namespace tolven::server {

// Clients of servers of this build and below know nothing of access lists.
inline constexpr std::uint32_t kLastBuildWithoutLists = 3111;

// A change record of "pull_event", with its path as seen from `folder`, a folder at or above it.
PObject ChangeRecord(const Node& node, std::string_view folder, std::uint32_t build);

// Owner, mode and access list of an object, as records and answers to "upload" carry them.
void AddAttributes(const Node& node, std::uint32_t build, PObject& record);

}  // namespace tolven::server
