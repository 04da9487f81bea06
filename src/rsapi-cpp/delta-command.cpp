#include "rsapi-cpp/delta-command.h"

#include "rsapi-cpp/big-endian.h"
#include "rsapi-cpp/rs-constant.h"

namespace tolven {

namespace {

// 0 to 3 for a value of 1, 2, 4 or 8 bytes.
unsigned WidthCode(std::uint64_t value) {
  return value <= 0xFF ? 0 : value <= 0xFFFF ? 1 : value <= 0xFFFFFFFF ? 2 : 3;
}

void AppendBig(std::vector<std::uint8_t>& out, std::uint64_t value, unsigned width_code) {
  std::uint8_t bytes[8];
  const std::size_t size = std::size_t{1} << width_code;
  StoreBig(bytes, value, size);
  out.insert(out.end(), bytes, bytes + size);
}

}  // namespace

void appendLiteralCommand(std::vector<std::uint8_t>& out, std::uint64_t length) {
  if (length <= RSConstant::kImmediateLimit) {
    out.push_back(static_cast<std::uint8_t>(length));
    return;
  }
  const unsigned code = length >> 31 == 1 ? 3 : WidthCode(length);
  out.push_back(static_cast<std::uint8_t>(RSConstant::OP_LITERAL_N1 + code));
  AppendBig(out, length, code);
}

void appendCopyCommand(std::vector<std::uint8_t>& out, std::uint64_t offset, std::uint64_t length) {
  const unsigned offset_code = WidthCode(offset), length_code = WidthCode(length);
  out.push_back(
      static_cast<std::uint8_t>(RSConstant::OP_COPY_N1_N1 + 4 * offset_code + length_code));
  AppendBig(out, offset, offset_code);
  AppendBig(out, length, length_code);
}

void appendDeltaMagic(std::vector<std::uint8_t>& out) {
  AppendBig(out, RSConstant::MAGIC_DELTA, 2);
}

void appendEndCommand(std::vector<std::uint8_t>& out) { out.push_back(RSConstant::OP_END); }

}  // namespace tolven
