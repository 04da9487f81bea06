#include "rsapi-cpp/signature-handler.h"

#include <algorithm>
#include <cstdio>

#include "rsapi-cpp/big-endian.h"
#include "rsapi-cpp/rs-constant.h"
#include "rsapi-cpp/rs-rolling-checksum.h"
#include "rsapi-cpp/simd.h"

namespace tolven {

int SignatureHandler::begin() {
  if (block_size_ == 0 || hash_size_ == 0 || hash_size_ > RSConstant::kStrongSumSize) {
    std::fprintf(stderr, "api (%d): invalid arguments (block_size = %u, hash_size = %u)\n",
                 __LINE__, block_size_, hash_size_);
    return -1;
  }
  read_buffer_.clear();
  if (output_.open(file_) < 0) return -1;
  std::uint8_t header[RSConstant::kSignatureHeaderSize];
  StoreBig(header, RSConstant::MAGIC_SIGNATURE, 4);
  StoreBig(header + 4, block_size_, 4);
  StoreBig(header + 8, hash_size_, 4);
  return output_.write(header, sizeof header);
}

std::size_t SignatureHandler::getSignatureSize(std::size_t size) const {
  return (size / block_size_ + 2) * (hash_size_ + RSConstant::kWeakSumSize);
}

int SignatureHandler::update(const void* data, std::size_t size) {
  const auto* from = static_cast<const std::uint8_t*>(data);
  write_buffer_.clear();
  write_buffer_.reserve(getSignatureSize(size));
  if (!read_buffer_.empty()) {
    const std::size_t count = std::min(size, block_size_ - read_buffer_.size());
    read_buffer_.insert(read_buffer_.end(), from, from + count);
    from += count;
    size -= count;
    if (read_buffer_.size() == block_size_) {
      updateBlocks(read_buffer_.data(), 1);
      read_buffer_.clear();
    }
  }
  const std::size_t blocks = size / block_size_;
  updateBlocks(from, blocks);
  const std::size_t taken = blocks * block_size_;
  read_buffer_.insert(read_buffer_.end(), from + taken, from + size);
  return output_.start(write_buffer_.data(), write_buffer_.size());
}

void SignatureHandler::updateBlocks(const std::uint8_t* data, std::size_t count) {
  const simd::Kernels& kernels = simd::Best();
  const std::uint8_t* blocks[simd::kMaxLanes];
  std::uint8_t strong[simd::kMaxLanes][RSConstant::kStrongSumSize];
  while (count > 0) {
    const std::size_t group = std::min(count, simd::kMaxLanes);
    for (std::size_t i = 0; i < group; ++i) blocks[i] = data + i * block_size_;
    simd::Md4Many(kernels, blocks, group, block_size_, strong[0]);
    for (std::size_t i = 0; i < group; ++i) {
      appendEntry(RSRollingChecksum::of(blocks[i], block_size_), strong[i]);
    }
    data += group * block_size_;
    count -= group;
  }
}

void SignatureHandler::appendEntry(std::uint32_t weak_sum, const std::uint8_t* strong_sum) {
  std::uint8_t weak[RSConstant::kWeakSumSize];
  StoreBig(weak, weak_sum, sizeof weak);
  write_buffer_.insert(write_buffer_.end(), weak, weak + sizeof weak);
  write_buffer_.insert(write_buffer_.end(), strong_sum, strong_sum + hash_size_);
}

int SignatureHandler::end() {
  int result = 0;
  if (!read_buffer_.empty()) {
    // The short last block.
    std::uint8_t strong[RSConstant::kStrongSumSize];
    simd::Md4One(read_buffer_.data(), read_buffer_.size(), strong);
    write_buffer_.clear();
    appendEntry(RSRollingChecksum::of(read_buffer_.data(), read_buffer_.size()), strong);
    result = output_.write(write_buffer_.data(), write_buffer_.size());
    read_buffer_.clear();
  }
  return output_.close() < 0 ? -1 : result;
}

}  // namespace tolven
