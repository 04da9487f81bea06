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
// How far the search goes on from a candidate to find more that are tried with it.
constexpr std::size_t kLookAhead = 16 * 1024;
// Blocks above this would need a buffer of their size; against them everything is literal.
constexpr std::uint32_t kLargestBlock = 8 << 20;

// Bytes that may be hashed in vain for each byte of the pass, and in any case. Weak sums of a basis
// of 16 GiB in blocks of 2 KiB deceive at one of 512 places of unrelated data: 4 bytes for each.
constexpr std::uint64_t kMostDeceived = 32, kDeceivedInAnyCase = 256 << 20;

using StrongSum = std::uint8_t[RSConstant::kStrongSumSize];

}  // namespace

int DeltaHandler::begin() {
  read_buffer_.clear();
  write_buffer_.clear();
  match_count_ = 0;
  passed_ = deceived_ = 0;
  if (index_.load(signature_file_) < 0) return -1;
  if (output_.open(delta_file_) < 0) return -1;
  appendDeltaMagic(write_buffer_);
  return startWrite();
}

int DeltaHandler::update(const void* data, std::size_t size) {
  const auto* from = static_cast<const std::uint8_t*>(data);
  if (index_.blockSize() > kLargestBlock) {
    appendLiteral(from, size);
    return startWrite();
  }
  passed_ += size;
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
  return startWrite();
}

int DeltaHandler::startWrite() {
  const int result = output_.wait();
  in_flight_.swap(write_buffer_);
  write_buffer_.clear();
  return result < 0 ? -1 : output_.start(in_flight_.data(), in_flight_.size());
}

int DeltaHandler::end() {
  write_buffer_.clear();
  appendLiteral(read_buffer_.data(), read_buffer_.size());
  appendEndCommand(write_buffer_);
  const int result = startWrite();
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
  expected_.clear();
  const std::size_t block = index_.blockSize(), behind = piece.last + 1;
  RSRollingChecksum sum;
  sum.update(piece.data + position, block);
  simd::Roll roll{piece.data + position, piece.data + position + block,
                  index_.blockSize(),    sum.digest() & 0xFFFF,
                  sum.digest() >> 16,    index_.filter(),
                  index_.filterShift()};
  // The first window alone: often it is the one, as where a new piece goes on with the old basis.
  for (std::size_t count = 1; position < behind; count = simd::kMaxRoll) {
    if (position < piece.last) {
      count = std::min(count, piece.last - position);
      collectCandidates(roll, position, count);
    } else {
      // No byte follows the last window, so it is not rolled over.
      const std::uint32_t digest = (roll.b << 16) | (roll.a & 0xFFFF);
      count = 1;
      expected_.push_back({position, digest});
    }
    position += count;
    if (position == behind) confirmExpected();
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

void DeltaHandler::collectCandidates(simd::Roll& roll, std::size_t position, std::size_t count) {
  std::uint32_t digests[simd::kMaxRoll], likely[simd::kMaxRoll + simd::kMaxLanes];
  const auto take = [&](std::size_t found, std::size_t first) {
    confirmExpected();
    for (std::size_t i = 0; i < found; ++i) {
      const std::uint32_t digest = digests[likely[i]];
      index_.expect(digest);
      expected_.push_back({position + first + likely[i], digest});
    }
  };
  const auto roll_over = [&](simd::RollFunction function, std::size_t first, std::size_t windows) {
    take(function(roll, windows, digests, likely), first);
    roll.outgoing += windows;
    roll.incoming += windows;
  };
  const std::size_t in_lanes = count - count % simd::kRollStep;
  if (in_lanes > 0) roll_over(simd::Best().roll, 0, in_lanes);
  if (count > in_lanes) roll_over(simd::RollPlain, in_lanes, count - in_lanes);
}

void DeltaHandler::confirmExpected() {
  for (const Candidate& candidate : expected_) {
    if (index_.hasWeakSum(candidate.weak_sum)) candidates_.push_back(candidate);
  }
  expected_.clear();
}

bool DeltaHandler::isDeceivedTooOften() const {
  return deceived_ > kDeceivedInAnyCase + kMostDeceived * passed_;
}

std::size_t DeltaHandler::tryCandidates(const Piece& piece, std::size_t count) {
  if (isDeceivedTooOften()) {
    candidates_.clear();
    return npos;
  }
  const std::uint8_t* windows[simd::kMaxLanes] = {};
  StrongSum strong[simd::kMaxLanes];
  for (std::size_t i = 0; i < count; ++i) windows[i] = piece.data + candidates_[i].position;
  simd::Md4Many(simd::Best(), windows, count, index_.blockSize(), strong[0]);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t block = index_.find(candidates_[i].weak_sum, strong[i]);
    if (block == npos) {
      deceived_ += index_.blockSize();
      continue;
    }
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
