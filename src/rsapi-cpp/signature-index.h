// A signature in memory, made for finding blocks by their sums.
//
// Three steps, each rarer and dearer than the one before: a filter of weak sums that says "no"
// to nearly every window of unrelated data; short lists of blocks by hashed weak sum; the
// strong sums. It takes the signature's own bytes, 7 bytes a block for the lists, and at most 32
// MiB for the filter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rsapi-cpp/simd.h"
#include "rsapi-cpp/xio.h"

namespace tolven {

class SignatureIndex {
 public:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  // -1 when the file cannot be read, or has a wrong magic, blocks of 0 bytes, or strong sums
  // outside 1 to 16 bytes. Bytes behind the last whole entry are left alone.
  int load(const ustring& path);

  std::uint32_t blockSize() const { return block_size_; }
  std::size_t count() const { return count_; }
  std::uint32_t weakSum(std::size_t block) const;
  bool hasStrongSum(std::size_t block, const std::uint8_t* strong_sum) const;

  // Lets through every weak sum that a block has, and few of the others; see simd.h.
  const std::uint32_t* filter() const { return filter_.data(); }
  unsigned filterShift() const { return filter_shift_; }
  bool hasWeakSum(std::uint32_t weak_sum) const;
  // Told some time before hasWeakSum() or find(), it spares them the wait for memory.
  void expect(std::uint32_t weak_sum) const {
    __builtin_prefetch(&starts_[bucketNumber(weak_sum)]);
  }
  // The lowest block with both sums, npos for none.
  std::size_t find(std::uint32_t weak_sum, const std::uint8_t* strong_sum) const;

 private:
  struct Bucket {
    const std::uint32_t* first;
    const std::uint32_t* last;
    bool sorted;  // by weak sum, strong sum and block, else by block alone
  };

  static std::uint16_t Tag(std::uint32_t weak_sum) {
    return static_cast<std::uint16_t>(weak_sum >> 16);
  }

  int loadHeader(const fd_t& fd);
  int loadBody(const fd_t& fd);
  void buildLists();
  void buildTags();
  void buildFilter();
  void sortLongLists();
  const std::uint8_t* entry(std::size_t block) const { return body_.data() + block * entry_size_; }
  int compare(std::size_t block, std::uint32_t weak_sum, const std::uint8_t* strong_sum) const;
  std::size_t bucketNumber(std::uint32_t weak_sum) const {
    return simd::FilterWord(weak_sum, bucket_shift_);
  }
  Bucket bucket(std::uint32_t weak_sum) const;

  std::uint32_t block_size_ = 0, hash_size_ = 0;
  std::size_t entry_size_ = 0, count_ = 0;
  std::vector<std::uint8_t> body_;     // the entries as they stand in the file
  std::vector<std::uint32_t> blocks_;  // by hashed weak sum, then by number
  std::vector<std::uint32_t> starts_;  // where each list begins in blocks_, and the end
  std::vector<std::uint16_t> tags_;    // of the weak sums, as blocks_ is ordered
  std::vector<std::uint32_t> filter_;
  unsigned bucket_shift_ = 0, filter_shift_ = 0;
};

}  // namespace tolven
