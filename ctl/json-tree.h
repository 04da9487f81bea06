// JSON for value trees, so that people and scripts can write requests and read replies:
//
//   tree      JSON
//   null      null
//   integer   a number; true and false are read as 1 and 0, a negative number as its 64-bit
//             two's complement (the tree knows no sign), and written as an unsigned number
//   string    a string
//   array     an array
//   map       an object, members in byte order of their names
//   binary    {"$binary": {"path": text, "offset": number, "length": number}}
#pragma once

#include <string>

#include "protocol/object.h"

namespace tolven::ctl {

// Reads one JSON value. On failure `error` is one line that tells what is wrong and where.
bool JsonToTree(const std::string& text, PObject& tree, std::string& error);

// One line, or indented over several. Nesting beyond 500 levels is cut off as null.
std::string TreeToJson(const PObject& tree, bool indented);

}  // namespace tolven::ctl
