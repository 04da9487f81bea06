#include "client/string-buffer.h"

#include <algorithm>
#include <functional>
#include <new>

namespace tolven {

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
  try {
    if (count_ + 1 > dic_.size() / 4 * 3) Grow();
  } catch (const std::bad_alloc&) {
    return -1;
  }
  const char*& slot = dic_[FindSlot(text)];
  if (slot == nullptr) {
    char* const room = Room(text.size() + 1);
    if (room == nullptr) return -1;
    *std::copy(text.begin(), text.end(), room) = '\0';
    slot = room;
    ++count_;
  }
  out.ptr = slot;
  return 0;
}

std::size_t StringBuffer::FindSlot(std::string_view text) const {
  const std::size_t mask = dic_.size() - 1;
  std::size_t slot = std::hash<std::string_view>{}(text)&mask;
  while (dic_[slot] != nullptr && dic_[slot] != text) slot = (slot + 1) & mask;
  return slot;
}

void StringBuffer::Grow() {
  std::vector<const char*> old(std::max<std::size_t>(16, dic_.size() * 2));
  old.swap(dic_);
  for (const char* const text : old) {
    if (text != nullptr) dic_[FindSlot(text)] = text;
  }
}

char* StringBuffer::Room(std::size_t size) {
  for (int i = 0; i < used_; ++i) {
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
