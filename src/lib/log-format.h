// Turns a printf format and a list of typed arguments into UTF-8 text.
#pragma once

#include <span>
#include <string>

#include "lib/log-arg.h"
#include "ustring/ustring.h"

namespace tolven {

// Appends to `out`. A directive takes the next argument and shows it by its type; length modifiers
// are read over. A directive without an argument, or one that does not exist, is copied as it
// stands; arguments without a directive are left out. Widths and precisions beyond 4,096 count as
// 4,096.
void FormatLogMessage(std::string& out, const xchar* format, std::span<const LogArg> args);

}  // namespace tolven
