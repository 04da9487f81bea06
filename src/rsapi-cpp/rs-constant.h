// The numbers of the signature and delta file formats, which are those of the librsync library.
// All integers in both files are big-endian.
//
// Signature: magic, block size (4 bytes each), length of a strong sum (4 bytes, 1 to 16), then for
// each block of the file, the last of which may be short, its weak sum (4 bytes) and the first
// bytes of its MD4.
//
// Delta: magic, then commands up to and including OP_END. A command is its opcode and the
// parameters that getInfo() tells of. What the commands make, one after the other, is the new
// file: a literal gives the bytes that follow it in the delta, a copy a range of the basis.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tolven {

struct RSConstant {
  static constexpr std::uint32_t MAGIC_DELTA = 0x72730236;
  static constexpr std::uint32_t MAGIC_SIGNATURE = 0x72730136;

  static constexpr std::size_t kSignatureHeaderSize = 12;
  static constexpr std::size_t kWeakSumSize = 4;
  static constexpr std::size_t kStrongSumSize = 16;  // of a whole MD4
  static constexpr std::uint64_t kImmediateLimit = 64;

  // Opcodes 1 to kImmediateLimit are literals of that many bytes. OP_COPY_Na_Nb has an offset of a
  // and a length of b bytes.
  enum : std::uint8_t {
    OP_END = 0x00,
    OP_LITERAL_N1 = 0x41,
    OP_LITERAL_N2,
    OP_LITERAL_N4,
    OP_LITERAL_N8,
    OP_COPY_N1_N1 = 0x45,
    OP_COPY_N1_N2,
    OP_COPY_N1_N4,
    OP_COPY_N1_N8,
    OP_COPY_N2_N1 = 0x49,
    OP_COPY_N2_N2,
    OP_COPY_N2_N4,
    OP_COPY_N2_N8,
    OP_COPY_N4_N1 = 0x4D,
    OP_COPY_N4_N2,
    OP_COPY_N4_N4,
    OP_COPY_N4_N8,
    OP_COPY_N8_N1 = 0x51,
    OP_COPY_N8_N2,
    OP_COPY_N8_N4,
    OP_COPY_N8_N8,
  };

  enum CmdType : std::uint8_t { kEnd = 0, kLiteral = 1, kCopy = 2, kReserved = 3 };

  // len_1 and len_2 are the sizes in bytes of the first and second parameter, 0 for none.
  struct CmdInfo {
    CmdType type = kReserved;
    std::uint8_t immediate = 0;  // length of a literal without parameters
    std::uint8_t len_1 = 0, len_2 = 0;
  };

  static const CmdInfo& getInfo(std::uint8_t op);
};

}  // namespace tolven
