#include "rsapi-cpp/delta-handler.h"

#include <algorithm>
#include <cstring>

#include "rsapi-cpp/delta-command.h"
#include "rsapi-cpp/rs-constant.h"
#include "rsapi-cpp/rs-rolling-checksum.h"
#include "rsapi-cpp/simd.h"

namespace tolven {

namespace {

constexpr std::size_t npos = SignatureIndex::npos;
// Windows that are rolled over before their sums are looked at together.
constexpr std::size_t kBatch = 256;
// How far the search goes on from a candidate to find more that are tried with it.
constexpr std::size_t kLookAhead = 16 * 1024;
// Blocks above this would need a buffer of their size; against them everything is literal.
constexpr std::uint32_t kLargestBlock = 8 << 20;

using StrongSum = std::uint8_t[RSConstant::kStrongSumSize];

}  // namespace

int DeltaHandler::begin() {
  read_buffer_.clear();
  write_buffer_.clear();
  match_count_ = 0;
  if (index_.load(signature_file_) < 0) return -1;
  if (output_.open(delta_file_) < 0) return -1;
  appendDeltaMagic(write_buffer_);
  const int result = output_.write(write_buffer_.data(), write_buffer_.size());
  write_buffer_.clear();
  return result;
}

int DeltaHandler::update(const void* data, std::size_t size) {
  const auto* from = static_cast<const std::uint8_t*>(data);
  if (index_.blockSize() > kLargestBlock) {
    appendLiteral(from, size);
    return output_.start(write_buffer_.data(), write_buffer_.size());
  }
  const bool joined = !read_buffer_.empty();
  if (joined) {
    read_buffer_.reserve(read_buffer_.size() + size);
    read_buffer_.insert(read_buffer_.end(), from, from + size);
    from = read_buffer_.data();
    size = read_buffer_.size();
  }
  const std::size_t used = size < index_.blockSize() ? 0 : scan(from, size);
  if (joined) {
    read_buffer_.erase(read_buffer_.begin(),
                       read_buffer_.begin() + static_cast<std::ptrdiff_t>(used));
  } else {
    read_buffer_.assign(from + used, from + size);
  }
  return output_.start(write_buffer_.data(), write_buffer_.size());
}

int DeltaHandler::wait() {
  const int result = output_.wait();
  write_buffer_.clear();
  return result;
}

int DeltaHandler::end() {
  write_buffer_.clear();
  appendLiteral(read_buffer_.data(), read_buffer_.size());
  appendEndCommand(write_buffer_);
  const int result = output_.write(write_buffer_.data(), write_buffer_.size());
  write_buffer_.clear();
  read_buffer_.clear();
  return output_.close() < 0 ? -1 : result;
}

std::size_t DeltaHandler::scan(const std::uint8_t* data, std::size_t size) {
  const std::size_t block = index_.blockSize();
  const Piece piece{data, size - block};
  std::size_t position = 0;
  while (position <= piece.last) {
    if (match_count_ > 0) {
      const std::size_t windows = extendMatch(piece, position);
      position += windows * block;
      if (windows > 0) continue;
      clearMatch();
    }
    const std::size_t found = findMatch(piece, position);
    const std::size_t stop = found == npos ? piece.last + 1 : found;
    appendLiteral(data + position, stop - position);
    position = found == npos ? stop : found + block;
  }
  clearMatch();
  return position;
}

std::size_t DeltaHandler::extendMatch(const Piece& piece, std::size_t position) {
  const std::size_t block = index_.blockSize(), next = match_start_ + match_count_;
  const std::size_t fitting = (piece.last - position) / block + 1;
  const std::size_t limit = std::min({simd::kMaxLanes, fitting, index_.count() - next});
  const std::uint8_t* windows[simd::kMaxLanes] = {};
  std::size_t likely = 0;
  for (; likely < limit; ++likely) {
    windows[likely] = piece.data + position + likely * block;
    if (RSRollingChecksum::of(windows[likely], block) != index_.weakSum(next + likely)) break;
  }
  StrongSum strong[simd::kMaxLanes];
  simd::Md4Many(simd::Best(), windows, likely, block, strong[0]);
  std::size_t sure = 0;
  while (sure < likely && index_.hasStrongSum(next + sure, strong[sure])) ++sure;
  match_count_ += sure;
  return sure;
}

std::size_t DeltaHandler::findMatch(const Piece& piece, std::size_t position) {
  if (index_.count() == 0) return npos;
  candidates_.clear();
  const std::size_t block = index_.blockSize(), behind = piece.last + 1;
  RSRollingChecksum sum;
  sum.update(piece.data + position, block);
  window_a_ = sum.digest() & 0xFFFF;
  window_b_ = sum.digest() >> 16;
  // The first window alone: often it is the one, as where a new piece goes on with the old basis.
  for (std::size_t count = 1; position < behind; count = kBatch) {
    count = std::min(count, behind - position);
    collectCandidates(piece, position, count);
    position += count;
    while (!candidates_.empty()) {
      const std::size_t together = std::min(try_together_, candidates_.size());
      if (together < try_together_ && position < behind &&
          position - candidates_.front().position < kLookAhead) {
        break;
      }
      const std::size_t found = tryCandidates(piece, together);
      if (found != npos) return found;
    }
  }
  return npos;
}

void DeltaHandler::collectCandidates(const Piece& piece, std::size_t position, std::size_t count) {
  std::uint32_t digests[kBatch];
  std::uint32_t a = window_a_, b = window_b_;
  const auto block = index_.blockSize();
  const std::uint8_t* const outgoing = piece.data + position;
  const std::uint8_t* const incoming = outgoing + block;
  // No byte follows the last window.
  const std::size_t moves = std::min(count, piece.last - position);
  for (std::size_t i = 0; i < moves; ++i) {
    digests[i] = (b << 16) | (a & 0xFFFF);
    const std::uint32_t out = outgoing[i];
    a += incoming[i] - out;
    b += a - block * (out + RSRollingChecksum::CHAR_OFFSET);
  }
  if (moves < count) digests[moves] = (b << 16) | (a & 0xFFFF);
  window_a_ = a;
  window_b_ = b;

  // Without a jump on what the bitmap says, so that its lookups overlap.
  std::uint32_t likely[kBatch];
  std::size_t found = 0;
  for (std::size_t i = 0; i < count; ++i) {
    likely[found] = static_cast<std::uint32_t>(i);
    found += index_.mayHave(digests[i]) ? 1 : 0;
  }
  for (std::size_t i = 0; i < found; ++i) {
    const std::uint32_t digest = digests[likely[i]];
    if (index_.hasWeakSum(digest)) candidates_.push_back({position + likely[i], digest});
  }
}

std::size_t DeltaHandler::tryCandidates(const Piece& piece, std::size_t count) {
  const std::uint8_t* windows[simd::kMaxLanes] = {};
  StrongSum strong[simd::kMaxLanes];
  for (std::size_t i = 0; i < count; ++i) windows[i] = piece.data + candidates_[i].position;
  simd::Md4Many(simd::Best(), windows, count, index_.blockSize(), strong[0]);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t block = index_.find(candidates_[i].weak_sum, strong[i]);
    if (block == npos) continue;
    match_start_ = block;
    match_count_ = 1;
    try_together_ = 1;
    return candidates_[i].position;
  }
  try_together_ = std::min(2 * try_together_, simd::kMaxLanes);
  candidates_.erase(candidates_.begin(), candidates_.begin() + static_cast<std::ptrdiff_t>(count));
  return npos;
}

void DeltaHandler::clearMatch() {
  if (match_count_ == 0) return;
  const std::uint64_t block = index_.blockSize();
  appendCopyCommand(write_buffer_, match_start_ * block, match_count_ * block);
  match_count_ = 0;
}

void DeltaHandler::appendLiteral(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return;
  appendLiteralCommand(write_buffer_, size);
  write_buffer_.insert(write_buffer_.end(), data, data + size);
}

}  // namespace tolven
