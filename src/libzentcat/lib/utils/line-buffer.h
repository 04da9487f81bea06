#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>

namespace tolven::TolvenApplication {

// A linear buffer of fixed capacity: written behind its content, read from its front. The content
// begins at _head, which goes back to _data when the content is used up; content that stands in
// the way of new data is moved to _data first.
template <class T>
class LineBuffer {
 public:
  explicit LineBuffer(std::size_t capacity)
      : _data(std::make_unique_for_overwrite<T[]>(capacity)),
        _head(_data.get()),
        _capacity(capacity) {}

  std::size_t size() const { return _size; }
  std::size_t capacity() const { return _capacity; }
  std::size_t room() const { return _capacity - _size; }
  bool empty() const { return _size == 0; }
  const T* head() const { return _head; }

  // Takes all of `data`, or nothing when there is no room for it.
  bool write(const T* data, std::size_t count) {
    if (count > room()) return false;
    std::copy_n(data, count, tail(count));
    _size += count;
    return true;
  }

  // Gives at most `count` elements from the front; returns how many.
  std::size_t read(T* data, std::size_t count) {
    count = std::min(count, _size);
    std::copy_n(_head, count, data);
    consume(count);
    return count;
  }

  // A place for `count` elements behind the content, to be filled in directly and then added with
  // grow(). REQUIRES: count <= room().
  T* tail(std::size_t count) {
    T* const end = _data.get() + _capacity;
    if (static_cast<std::size_t>(end - _head) - _size < count) {
      std::move(_head, _head + _size, _data.get());
      _head = _data.get();
    }
    return _head + _size;
  }
  void grow(std::size_t count) { _size += count; }

  // Drops `count` elements from the front. REQUIRES: count <= size().
  void consume(std::size_t count) {
    _size -= count;
    _head = _size == 0 ? _data.get() : _head + count;
  }

 private:
  std::unique_ptr<T[]> _data;
  T* _head;
  std::size_t _capacity;
  std::size_t _size = 0;
};

}  // namespace tolven::TolvenApplication
