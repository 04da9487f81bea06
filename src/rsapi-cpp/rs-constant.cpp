#include "rsapi-cpp/rs-constant.h"

#include <array>

namespace tolven {

namespace {

using Table = std::array<RSConstant::CmdInfo, 256>;

constexpr Table MakeTable() {
  Table table;
  table[RSConstant::OP_END].type = RSConstant::kEnd;
  for (std::size_t length = 1; length <= RSConstant::kImmediateLimit; ++length) {
    table[length] = {RSConstant::kLiteral, static_cast<std::uint8_t>(length), 0, 0};
  }
  constexpr std::uint8_t kWidths[] = {1, 2, 4, 8};
  std::size_t literal = RSConstant::OP_LITERAL_N1, copy = RSConstant::OP_COPY_N1_N1;
  for (const std::uint8_t first : kWidths) {
    table[literal++] = {RSConstant::kLiteral, 0, first, 0};
    for (const std::uint8_t second : kWidths) {
      table[copy++] = {RSConstant::kCopy, 0, first, second};
    }
  }
  return table;
}

constexpr Table kTable = MakeTable();

}  // namespace

const RSConstant::CmdInfo& RSConstant::getInfo(std::uint8_t op) { return kTable[op]; }

}  // namespace tolven
