// What the daemon reports, in words for a person.
#pragma once

#include <string>
#include <string_view>

#include "protocol/object.h"

namespace tolven::ctl {

// What an error code of lib/error-table.h means and what helps, without a full stop.
std::string ErrorWords(int code);

// One line for a notification, such as "synced /a.txt (session 1)".
std::string Describe(const PObject& message);

// Whether a notification tells of something that needs the user's attention.
bool IsProblem(const PObject& message);

// Whether a file's name says that it was put aside in a conflict.
bool IsConflictName(std::string_view name);

// Text that a terminal cannot take for commands: control characters become "?".
std::string Printable(std::string_view text);

}  // namespace tolven::ctl
