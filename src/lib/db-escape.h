// Builds SQL text from a format with typed placeholders:
//
//   @ZENT:VAR    text for use inside '...': quotes are doubled
//   @ZENT:LVAR   the same for a LIKE pattern: "%", "_" and "\" get a "\" in front as well, so the
//                statement has to name it with ESCAPE '\'
//   @ZENT:INT    signed 32-bit integer
//   @ZENT:LLINT  signed 64-bit integer
//   @ZENT:NEVAR  text as it is
//
// Everything else is copied. A null text counts as empty. A placeholder without an argument counts
// as an empty text or 0; one whose argument is of the other kind shows a number as its digits and a
// text as 0.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "ustring/ustring.h"

namespace tolven {

// Text is not copied: an argument lives no longer than the call it was made for.
struct DbArg {
  DbArg(const char* value) : text(value == nullptr ? "" : value) {}
  DbArg(const std::string& value) : text(value) {}
  DbArg(const ustring& value) : text(value.view()) {}
  template <class T>
  requires std::is_integral_v<T> DbArg(T value)
      : number(static_cast<std::int64_t>(value)), is_number(true) {}

  std::string_view text;
  std::int64_t number = 0;
  bool is_number = false;
};

std::string SQLITEEscapeStringEX3(std::string_view format, std::span<const DbArg> args);

template <class... Args>
std::string ZENTDBEscapeStringEX3(std::string_view format, const Args&... args) {
  const DbArg list[sizeof...(Args) + 1] = {DbArg(args)..., DbArg(0)};
  return SQLITEEscapeStringEX3(format, std::span<const DbArg>(list, sizeof...(Args)));
}

}  // namespace tolven
