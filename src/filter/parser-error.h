// What a line of a filter file can have wrong with it.
#pragma once

namespace tolven {

// -1, -10 and -17 to -19 are kept for their numbers; no line gives them.
enum class parser_error : int {
  NO_ERROR = 0,
  SECTION_MISSING_LEFT_BRACKET = -1,
  SECTION_MISSING_RIGHT_BRACKET = -2,
  SECTION_MISSING_SECTION = -3,
  SECTION_ILLEGAL_CHARACTER = -4,
  SECTION_TOO_LONG = -5,
  SECTION_UNDEFINED_SECTION = -6,
  KEY_MISSING_KEY = -7,
  KEY_ILLEGAL_CHARACTER = -8,
  KEY_TOO_LONG = -9,
  KEY_UNDEFINED_KEY = -10,
  VALUE_NUMERIC_MISSING_INTEGER_PART = -11,
  VALUE_NUMERIC_MISSING_FRACTIONAL_PART = -12,
  VALUE_NUMERIC_MISSING_VALUE = -13,
  VALUE_NUMERIC_ILLEGAL_SYNTAX = -14,
  VALUE_STRING_MISSING_LEFT_QUOTE = -15,
  VALUE_STRING_MISSING_RIGHT_QUOTE = -16,
  VALUE_STRING_ESCAPE_ILLEGAL_SEQUENCE = -17,
  VALUE_STRING_ESCAPE_ILLEGAL_HEX_VALUE = -18,
  VALUE_STRING_ESCAPE_ILLEGAL_OCT_VALUE = -19,
  VALUE_STRING_ILLEGAL_CHARACTER = -20,
  VALUE_STRING_EMPTY = -21,
  VALUE_SET_MISSING_SEPARATER = -22,
  VALUE_TOO_LONG = -23,
  LINE_NOT_ENDED = -24,
  LINE_NOT_EXPECTED = -25,
  INTERNAL_ERROR = -26,  // the file cannot be opened or read
};

// The enumerator's name, "Unknown error" for any other code.
const char* parser_error_name(int code);

}  // namespace tolven
