#include "rsapi-cpp/signature-index.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <limits>

#include "rsapi-cpp/big-endian.h"
#include "rsapi-cpp/handler-output.h"
#include "rsapi-cpp/rs-constant.h"

namespace tolven {

namespace {

// Lists beyond this are searched by halves: a file of zeros, or one made to be slow.
constexpr std::size_t kLongList = 64;
constexpr unsigned kMinFilterBits = 10, kMaxFilterBits = 28;
constexpr std::size_t kFilterBitsPerBlock = 16, kBlocksPerList = 8;

// The file, from where it stands, into `to`: the count, -1 for a failure.
fd_ssize_t ReadAll(const fd_t& fd, std::uint8_t* to, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const fd_ssize_t got = fd_read(fd, to + done, size - done);
    if (got < 0) return api_fail(__LINE__, "fd_read");
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<fd_ssize_t>(done);
}

}  // namespace

int SignatureIndex::load(const ustring& path) {
  fd_t fd;
  if (fd_open_read(path, fd) < 0) return api_fail(__LINE__, "fd_open_read");
  int result = -1;
  try {
    result = loadHeader(fd) == 0 && loadBody(fd) == 0 ? 0 : -1;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "api (%d): no memory for signature '%s'\n", __LINE__, path.c_str_utf8());
  }
  fd_close(fd);
  if (result < 0) return -1;
  buildLists();
  sortLongLists();
  buildTags();
  buildFilter();
  return 0;
}

int SignatureIndex::loadHeader(const fd_t& fd) {
  std::uint8_t header[RSConstant::kSignatureHeaderSize] = {};
  const fd_ssize_t got = ReadAll(fd, header, sizeof header);
  if (got < 0) return -1;
  block_size_ = LoadBig32(header + 4);
  hash_size_ = LoadBig32(header + 8);
  entry_size_ = RSConstant::kWeakSumSize + hash_size_;
  if (got < static_cast<fd_ssize_t>(sizeof header) ||
      LoadBig32(header) != RSConstant::MAGIC_SIGNATURE || block_size_ == 0 || hash_size_ == 0 ||
      hash_size_ > RSConstant::kStrongSumSize) {
    std::fprintf(stderr, "api (%d): invalid signature header\n", __LINE__);
    return -1;
  }
  return 0;
}

int SignatureIndex::loadBody(const fd_t& fd) {
  std::uint64_t size = 0;
  if (fd_stat(fd, size) < 0) return api_fail(__LINE__, "fd_stat");
  size -= std::min<std::uint64_t>(size, RSConstant::kSignatureHeaderSize);
  body_.resize(static_cast<std::size_t>(size));
  const fd_ssize_t got = ReadAll(fd, body_.data(), body_.size());
  if (got < 0) return -1;
  // Block numbers are kept in 32 bits: of more blocks, the first ones serve.
  count_ = std::min<std::size_t>(static_cast<std::size_t>(got) / entry_size_,
                                 std::numeric_limits<std::uint32_t>::max() - 1);
  return 0;
}

void SignatureIndex::buildLists() {
  const auto bits = static_cast<unsigned>(std::bit_width(count_ / kBlocksPerList | 1));
  bucket_shift_ = 32 - bits;
  starts_.assign((std::size_t{1} << bits) + 1, 0);
  blocks_.resize(count_);
  // Counting sort: blocks keep their order within a list.
  for (std::size_t i = 0; i < count_; ++i) ++starts_[bucketNumber(weakSum(i)) + 1];
  for (std::size_t i = 1; i < starts_.size(); ++i) starts_[i] += starts_[i - 1];
  for (std::size_t i = 0; i < count_; ++i) {
    blocks_[starts_[bucketNumber(weakSum(i))]++] = static_cast<std::uint32_t>(i);
  }
  // Each start has moved on to the end of its list.
  for (std::size_t i = starts_.size() - 1; i > 0; --i) starts_[i] = starts_[i - 1];
  starts_[0] = 0;
}

void SignatureIndex::sortLongLists() {
  const auto before = [this](std::uint32_t left, std::uint32_t right) {
    const int order = compare(left, weakSum(right), entry(right) + RSConstant::kWeakSumSize);
    return order != 0 ? order < 0 : left < right;
  };
  for (std::size_t i = 0; i + 1 < starts_.size(); ++i) {
    const auto first = blocks_.begin() + starts_[i], last = blocks_.begin() + starts_[i + 1];
    if (last - first <= static_cast<std::ptrdiff_t>(kLongList)) continue;
    if (!std::is_sorted(first, last, before)) std::sort(first, last, before);
  }
}

void SignatureIndex::buildTags() {
  tags_.resize(count_);
  for (std::size_t i = 0; i < count_; ++i) tags_[i] = Tag(weakSum(blocks_[i]));
}

void SignatureIndex::buildFilter() {
  const auto wanted = static_cast<unsigned>(std::bit_width(count_ * kFilterBitsPerBlock));
  const unsigned bits = std::clamp(wanted, kMinFilterBits, kMaxFilterBits);
  filter_shift_ = 32 - (bits - 5);
  filter_.assign(std::size_t{1} << (bits - 5), 0);
  for (std::size_t i = 0; i < count_; ++i) {
    const std::uint32_t sum = weakSum(i);
    filter_[simd::FilterWord(sum, filter_shift_)] |= simd::FilterBits(sum);
  }
}

std::uint32_t SignatureIndex::weakSum(std::size_t block) const { return LoadBig32(entry(block)); }

bool SignatureIndex::hasStrongSum(std::size_t block, const std::uint8_t* strong_sum) const {
  return std::memcmp(entry(block) + RSConstant::kWeakSumSize, strong_sum, hash_size_) == 0;
}

int SignatureIndex::compare(std::size_t block, std::uint32_t weak_sum,
                            const std::uint8_t* strong_sum) const {
  const std::uint32_t own = weakSum(block);
  if (own != weak_sum) return own < weak_sum ? -1 : 1;
  return std::memcmp(entry(block) + RSConstant::kWeakSumSize, strong_sum, hash_size_);
}

SignatureIndex::Bucket SignatureIndex::bucket(std::uint32_t weak_sum) const {
  const std::size_t number = bucketNumber(weak_sum);
  const std::uint32_t first = starts_[number], last = starts_[number + 1];
  return {blocks_.data() + first, blocks_.data() + last, last - first > kLongList};
}

bool SignatureIndex::hasWeakSum(std::uint32_t weak_sum) const {
  const Bucket list = bucket(weak_sum);
  if (list.sorted) {
    const auto* found = std::lower_bound(
        list.first, list.last, weak_sum,
        [this](std::uint32_t block, std::uint32_t wanted) { return weakSum(block) < wanted; });
    return found != list.last && weakSum(*found) == weak_sum;
  }
  const std::uint16_t* tag = tags_.data() + (list.first - blocks_.data());
  for (const std::uint32_t* block = list.first; block != list.last; ++block, ++tag) {
    if (*tag == Tag(weak_sum) && weakSum(*block) == weak_sum) return true;
  }
  return false;
}

std::size_t SignatureIndex::find(std::uint32_t weak_sum, const std::uint8_t* strong_sum) const {
  const Bucket list = bucket(weak_sum);
  const auto order = [&](std::uint32_t block) { return compare(block, weak_sum, strong_sum); };
  const auto* found =
      list.sorted ? std::partition_point(list.first, list.last,
                                         [&](std::uint32_t block) { return order(block) < 0; })
                  : std::find_if(list.first, list.last,
                                 [&](std::uint32_t block) { return order(block) == 0; });
  return found != list.last && order(*found) == 0 ? *found : npos;
}

}  // namespace tolven
