// The pieces that lines of filter files are made of. Each function cuts its piece off the front of
// `rest`, which holds what is left of a line, without the line end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "filter/parser-error.h"

namespace tolven::scan {

void SkipSpace(std::string_view& rest);
// Nothing is left but a comment.
bool AtLineEnd(std::string_view rest);
// Letters, digits, "-" and "_"; may be empty.
std::string_view TakeName(std::string_view& rest);
// The fraction is dropped, a number out of range becomes the nearest one within.
parser_error TakeInteger(std::string_view& rest, std::int64_t& value);
// A quoted string with its escapes resolved.
parser_error TakeString(std::string_view& rest, std::string& value);

}  // namespace tolven::scan
