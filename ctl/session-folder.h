// What the daemon needs to find on disk before a session can be added.
#pragma once

#include <string>

#include "ustring/ustring.h"

namespace tolven::ctl {

// The session's black list, which its rules are edited in.
ustring BlackListPath(const ustring& session_folder);

// Makes the folders and the three lists that are missing; what is there stays. The black list is
// empty at first, the white list lets every extension in, and no extension is always hashed. False
// with one line in `error`.
bool PrepareSessionFolder(const ustring& session_folder, std::string& error);

}  // namespace tolven::ctl
