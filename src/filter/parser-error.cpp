#include "filter/parser-error.h"

#include <array>
#include <cstddef>

namespace tolven {

const char* parser_error_name(int code) {
  static constexpr std::array kNames = {
      "NO_ERROR",
      "SECTION_MISSING_LEFT_BRACKET",
      "SECTION_MISSING_RIGHT_BRACKET",
      "SECTION_MISSING_SECTION",
      "SECTION_ILLEGAL_CHARACTER",
      "SECTION_TOO_LONG",
      "SECTION_UNDEFINED_SECTION",
      "KEY_MISSING_KEY",
      "KEY_ILLEGAL_CHARACTER",
      "KEY_TOO_LONG",
      "KEY_UNDEFINED_KEY",
      "VALUE_NUMERIC_MISSING_INTEGER_PART",
      "VALUE_NUMERIC_MISSING_FRACTIONAL_PART",
      "VALUE_NUMERIC_MISSING_VALUE",
      "VALUE_NUMERIC_ILLEGAL_SYNTAX",
      "VALUE_STRING_MISSING_LEFT_QUOTE",
      "VALUE_STRING_MISSING_RIGHT_QUOTE",
      "VALUE_STRING_ESCAPE_ILLEGAL_SEQUENCE",
      "VALUE_STRING_ESCAPE_ILLEGAL_HEX_VALUE",
      "VALUE_STRING_ESCAPE_ILLEGAL_OCT_VALUE",
      "VALUE_STRING_ILLEGAL_CHARACTER",
      "VALUE_STRING_EMPTY",
      "VALUE_SET_MISSING_SEPARATER",
      "VALUE_TOO_LONG",
      "LINE_NOT_ENDED",
      "LINE_NOT_EXPECTED",
      "INTERNAL_ERROR",
  };
  if (code > 0 || code <= -static_cast<int>(kNames.size())) return "Unknown error";
  return kNames[static_cast<std::size_t>(-code)];
}

}  // namespace tolven
