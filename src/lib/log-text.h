// Text on its way into the log: to well-formed UTF-8, without characters that a terminal or a
// reader of lines would act upon.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tolven {

enum class ControlCharacters { kKept, kEscaped };

// Appends one character; a control character as "\n", "\r", "\t" or "\x1b", and what is no
// character as U+FFFD.
void AppendCharacter(std::string& out, char32_t c);
// Appends a byte as "\xff", or as the control character that it is.
void AppendEscapedByte(std::string& out, unsigned char byte);
// Appends UTF-8; control characters and bytes that do not belong to any character are escaped.
void AppendNarrow(std::string& out, std::string_view text);
// Units of a surrogate pair are joined, in 32 bits as well.
void AppendWide(std::string& out, std::wstring_view text, ControlCharacters control);
void AppendUtf16(std::string& out, std::u16string_view text);

std::size_t CountCharacters(std::string_view utf8);
// The first `count` characters.
std::string_view CutCharacters(std::string_view utf8, std::size_t count);

}  // namespace tolven
