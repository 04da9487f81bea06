#pragma once

namespace tolven {

// Whether all of `str` matches `pattern`: 0 or -1. "*" matches any run of bytes, also an empty one;
// all else matches itself, ignoring the case of ASCII letters. The text between two stars is taken
// where it first occurs, which decides the match in one pass.
int _filter_glob(const char* str, const char* pattern);

}  // namespace tolven
