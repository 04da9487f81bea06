#include "platform/command-line.h"

namespace tolven::platform {

namespace {

// Backslashes stand for themselves unless a quotation mark follows, the closing one included.
std::string Quoted(std::string_view word) {
  if (!word.empty() && word.find_first_of(" \t\n\v\"") == std::string_view::npos) {
    return std::string(word);
  }
  std::string text = "\"";
  std::size_t backslashes = 0;
  for (const char c : word) {
    if (c == '"') text.append(backslashes + 1, '\\');
    backslashes = c == '\\' ? backslashes + 1 : 0;
    text += c;
  }
  text.append(backslashes, '\\');
  return text += '"';
}

}  // namespace

std::string JoinCommandLine(const std::vector<ustring>& words) {
  std::string line;
  for (const ustring& word : words) {
    if (!line.empty()) line += ' ';
    line += Quoted(word.view());
  }
  return line;
}

}  // namespace tolven::platform
