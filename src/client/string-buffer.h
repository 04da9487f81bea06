// Texts kept once each, for as long as the buffer lives. Two folder listings that are compared
// share most of their names, so both take them from one buffer and hold only pointers.
//
// Belongs to one thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace tolven {

class StringBuffer {
 public:
  // A text of the buffer. Equal texts of one buffer have equal pointers.
  struct String {
    const char* ptr = "";

    bool operator<(const String& other) const { return std::strcmp(ptr, other.ptr) < 0; }
  };

  // `first_chunk`: bytes that the first chunk holds at least.
  explicit StringBuffer(std::size_t first_chunk = 4) : next_capacity_(first_chunk) {}
  StringBuffer(const StringBuffer&) = delete;
  StringBuffer& operator=(const StringBuffer&) = delete;

  // Gives the text that equals `text`, taken in now if it is new. `text` holds no NUL. 0, or -1
  // without memory.
  int insert(std::string_view text, String& out);
  // Makes room for so many texts in all; more may come. 0, or -1 without memory.
  int reserve(std::size_t count);

  std::size_t size() const { return count_; }

 private:
  // Never moved or shrunk, so that texts stay in place.
  class Chunk {
   public:
    bool allocate(std::size_t size);
    char* get(std::size_t size);  // null when it does not fit

   private:
    std::size_t capacity_ = 0;
    std::size_t offset_ = 0;  // bytes used
    std::unique_ptr<char[]> data_;
  };

  static constexpr int kChunks = 32;

  // The slot that holds `text`, or the empty one where it belongs.
  std::size_t FindSlot(std::string_view text, std::size_t hash) const;
  void Grow(std::size_t slots);
  char* Room(std::size_t size);

  std::array<Chunk, kChunks> chunk_;
  int used_ = 0;  // chunks in use
  std::size_t next_capacity_;
  // Open addressing, a power of two slots. The tag of a slot, 0 for an empty one, is a piece of the
  // text's hash, so that hardly any text is looked at in vain: each is a miss of the cache.
  std::vector<std::uint8_t> tag_;
  std::vector<const char*> dic_;
  std::size_t count_ = 0;
};

}  // namespace tolven
