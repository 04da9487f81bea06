// Which folders may be synced.
#pragma once

#include <string>
#include <vector>

#include "ctl/home.h"
#include "ctl/session-store.h"

namespace tolven::ctl {

// ~/Tolven. Empty, with one line in `error`, when the home directory cannot be found.
std::string DefaultSyncRoot(std::string& error);

// The absolute form of what a user wrote, with links followed; it need not exist.
ustring PlainFolder(const std::string& text);

// Whether one folder is the other, or lies in it.
bool Overlap(const ustring& a, const ustring& b);

// Refuses what can be no root of a new session: Tolven Hub's own data and whatever holds it, a
// folder that overlaps another session's, and what is no folder. Empty `error` means that it may.
// What does not exist is fine.
void CheckSyncRoot(const ustring& folder, const Home& home,
                   const std::vector<SessionRecord>& others, std::string& error);

}  // namespace tolven::ctl
