// The byte form of a delta's commands; see rs-constant.h.
#pragma once

#include <cstdint>
#include <vector>

namespace tolven {

// One command as it is read or kept. A literal's start is its place in the delta, a copy's its
// place in the basis.
struct PatchCommand {
  std::uint64_t start = 0, length = 0;
  bool is_literal = false;
};

// Each parameter takes the narrowest width that holds it; a literal whose length has the top bit
// of 32 set takes 8 bytes. The literal's data is to follow its command.
void appendLiteralCommand(std::vector<std::uint8_t>& out, std::uint64_t length);
void appendCopyCommand(std::vector<std::uint8_t>& out, std::uint64_t offset, std::uint64_t length);
void appendDeltaMagic(std::vector<std::uint8_t>& out);
void appendEndCommand(std::vector<std::uint8_t>& out);

}  // namespace tolven
