// Comparisons that ignore the case of ASCII letters; all other bytes compare exactly.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace tolven::fold {

inline constexpr std::array<char, 256> kTable = [] {
  std::array<char, 256> table{};
  for (std::size_t i = 0; i < table.size(); ++i) {
    table[i] = static_cast<char>(i >= 'A' && i <= 'Z' ? i - 'A' + 'a' : i);
  }
  return table;
}();

inline char Fold(char c) { return kTable[static_cast<unsigned char>(c)]; }

inline bool Equal(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (Fold(a[i]) != Fold(b[i])) return false;
  }
  return true;
}

inline bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && Equal(text.substr(0, prefix.size()), prefix);
}

inline bool EndsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && Equal(text.substr(text.size() - suffix.size()), suffix);
}

}  // namespace tolven::fold
