#include "client/string-buffer.h"

#include <algorithm>
#include <functional>
#include <new>

namespace tolven {

namespace {

std::size_t HashOf(std::string_view text) { return std::hash<std::string_view>{}(text); }

// Of bits that do not choose the slot; never 0.
std::uint8_t TagOf(std::size_t hash) { return static_cast<std::uint8_t>((hash >> 56) | 1); }

}  // namespace

bool StringBuffer::Chunk::allocate(std::size_t size) {
  data_.reset(new (std::nothrow) char[size]);
  capacity_ = data_ == nullptr ? 0 : size;
  offset_ = 0;
  return data_ != nullptr;
}

char* StringBuffer::Chunk::get(std::size_t size) {
  if (capacity_ - offset_ < size) return nullptr;
  char* const room = data_.get() + offset_;
  offset_ += size;
  return room;
}

int StringBuffer::insert(std::string_view text, String& out) {
  if (count_ + 1 > dic_.size() / 4 * 3 && reserve(count_ + 1) != 0) return -1;
  const std::size_t hash = HashOf(text);
  const std::size_t slot = FindSlot(text, hash);
  if (tag_[slot] == 0) {
    char* const room = Room(text.size() + 1);
    if (room == nullptr) return -1;
    *std::copy(text.begin(), text.end(), room) = '\0';
    tag_[slot] = TagOf(hash);
    dic_[slot] = room;
    ++count_;
  }
  out.ptr = dic_[slot];
  return 0;
}

int StringBuffer::reserve(std::size_t count) {
  std::size_t slots = std::max<std::size_t>(16, dic_.size());
  while (count > slots / 4 * 3) slots *= 2;
  if (slots == dic_.size()) return 0;
  try {
    Grow(slots);
  } catch (const std::bad_alloc&) {
    return -1;
  }
  return 0;
}

std::size_t StringBuffer::FindSlot(std::string_view text, std::size_t hash) const {
  const std::size_t mask = dic_.size() - 1;
  const std::uint8_t tag = TagOf(hash);
  std::size_t slot = hash & mask;
  while (tag_[slot] != 0 && (tag_[slot] != tag || dic_[slot] != text)) slot = (slot + 1) & mask;
  return slot;
}

void StringBuffer::Grow(std::size_t slots) {
  std::vector<std::uint8_t> old_tag(slots);
  std::vector<const char*> old(slots);
  old_tag.swap(tag_);
  old.swap(dic_);
  for (std::size_t i = 0; i < old.size(); ++i) {
    if (old_tag[i] == 0) continue;
    const std::size_t slot = FindSlot(old[i], HashOf(old[i]));
    tag_[slot] = old_tag[i];
    dic_[slot] = old[i];
  }
}

char* StringBuffer::Room(std::size_t size) {
  // The last one has nearly always room; the others have some left for short texts.
  for (int i = used_; i-- > 0;) {
    if (char* const room = chunk_[static_cast<std::size_t>(i)].get(size)) return room;
  }
  if (used_ == kChunks) return nullptr;
  Chunk& chunk = chunk_[static_cast<std::size_t>(used_)];
  const std::size_t capacity = std::max(next_capacity_, 2 * size);
  if (!chunk.allocate(capacity)) return nullptr;
  next_capacity_ = 2 * capacity;
  ++used_;
  return chunk.get(size);
}

}  // namespace tolven
