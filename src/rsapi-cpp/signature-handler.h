// Writes the signature of the bytes of a pass; see rs-constant.h for its format.
#pragma once

#include <cstdint>
#include <vector>

#include "rsapi-cpp/handler-output.h"
#include "rsapi-cpp/handler.h"

namespace tolven {

class SignatureHandler : public Handler {
 public:
  explicit SignatureHandler(const ustring& file) : file_(file) {}

  // Both before begin(), which fails for a block of 0 bytes and for a sum outside 1 to 16.
  void setBlockSize(std::uint32_t block_size) { block_size_ = block_size; }
  void setHashSize(std::uint32_t hash_size) { hash_size_ = hash_size; }

  int begin() override;
  int update(const void* data, std::size_t size) override;
  int wait() override { return output_.wait(); }
  int end() override;

  // A bound for the entries that `size` bytes more make.
  std::size_t getSignatureSize(std::size_t size) const;

 private:
  // Entries of `count` whole blocks that lie one behind the other.
  void updateBlocks(const std::uint8_t* data, std::size_t count);
  void appendEntry(std::uint32_t weak_sum, const std::uint8_t* strong_sum);

  const ustring file_;
  std::uint32_t block_size_ = 0, hash_size_ = 0;
  HandlerOutput output_;
  std::vector<std::uint8_t> write_buffer_;  // entries on their way to the file
  std::vector<std::uint8_t> read_buffer_;   // the beginning of a block whose rest is to come
};

}  // namespace tolven
