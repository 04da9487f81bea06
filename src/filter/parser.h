// The grammar that filters, white lists and force-hash-check lists share:
//
//   # a comment; may also end a line
//   [File]
//   max_size = 1048576                 # integer: optional sign, "0" or digits, optional fraction
//   black_char = ":*\"\x7f"            # string: 1 to 4,096 bytes once its escapes are resolved
//   black_name = "Thumbs.db",          # set of strings; a comma at the end of a line continues it
//                "desktop.ini"
//
// White space is blank, tab and the codes 0x0B to 0x0D. Names of sections and keys have 1 to 32
// letters, digits, "-" and "_". Escapes are \a \b \f \n \r \t \v \' \" \\ \?, \x with two
// hexadecimal digits and three octal digits up to 377, all but NUL. Lines have at most 10,297
// bytes; the rest of a longer one counts as a line of its own, and a line ends at a NUL byte. A
// section may come again: sets grow, other values are replaced. A key that the schema does not
// know is told on standard output and skipped with the rest of its line.
//
// The first error ends the parse; it is told on standard error with its line.
#pragma once

#include <string_view>

#include "filter/parser-error.h"
#include "filter/schema.h"
#include "ustring/ustring.h"

namespace tolven {

enum parse_result {
  PARSE_DONE = 0,
  PARSE_PARTIAL = 1,  // some keys were unknown
  PARSE_ERROR = 2,    // what was read before the error is left in the result
};

class Parser {
 public:
  explicit Parser(const schema_parser& schema) : parser_schema(schema) {}

  parse_result ParseFile(const ustring& path);
  parse_result ParseText(std::string_view text);

 private:
  enum Expect : unsigned { kSection = 1, kKey = 2, kValue = 4 };

  // Parses the whole lines in `text` and cuts them off; with `at_end` what is left is a line, too.
  parser_error ParseLines(std::string_view& text, bool at_end);
  parser_error ParseLine(std::string_view line);
  parser_error ParseSection(std::string_view rest);
  parser_error ParseKey(std::string_view rest);
  parser_error ParseInteger(std::string_view rest);
  parser_error ParseString(std::string_view rest);
  parser_error ParseSet(std::string_view rest);
  parse_result Finish(parser_error error) const;

  const schema_parser& parser_schema;
  const schema_section* section_schema = nullptr;
  const schema_key* key_schema = nullptr;
  unsigned next_expect = kSection;
  int line_count = 0;
  int unknown_key_count = 0;
};

// Whether a file that was parsed may be used: all keys are known, or its version is of the same
// major number and newer than the schema, which makes unknown keys legitimate.
bool IsAccepted(const schema_parser& schema, const VersionSection& version, parse_result result);

}  // namespace tolven
