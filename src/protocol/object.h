// The value tree that every request, answer and notification is: null, integer, string, binary (a
// slice of a file on disk, never its bytes), array and map. There is no boolean and no sign: both
// are integers.
//
// An object owns its whole subtree and copies are deep. Trees may nest as deep as memory allows:
// nothing here recurses on the call stack. Not locked.
#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "ustring/ustring.h"

namespace tolven {

class PObject {
 public:
  enum Type : int {
    TYPE_NULL = 0,
    TYPE_ARRAY = 1,
    TYPE_MAP = 2,
    TYPE_INTEGER = 3,
    TYPE_STRING = 4,
    TYPE_BINARY = 5,
  };

  // Bytes `offset` to `offset` + `length` of the file `path`.
  struct binary_type {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    ustring path;

    bool empty() const { return path.empty(); }
    void clear() { *this = binary_type(); }
  };
  using integer_type = std::uint64_t;
  using string_type = ustring;
  using array_type = std::vector<PObject>;
  using map_type = std::map<ustring, PObject, UStringLess>;  // in byte order of the keys

  // What the const accessors give on a mismatch.
  static const binary_type empty_binary;
  static const string_type empty_string;
  static const map_type empty_map;
  static const array_type empty_array;
  static const PObject empty_object;

  PObject() = default;
  PObject(const PObject& other) { copy(other); }
  PObject(PObject&& other) noexcept { swap(other); }
  PObject(const char* text) { *this = text; }
  PObject(const string_type& text) { *this = text; }
  PObject(integer_type value) { *this = value; }
  ~PObject() { clear(); }

  // An object assigned to itself ends null. It must not be copied from one of its own children.
  PObject& operator=(const PObject& other) {
    copy(other);
    return *this;
  }
  PObject& operator=(PObject&& other) noexcept;
  PObject& operator=(const string_type& text);
  PObject& operator=(string_type&& text);
  PObject& operator=(const char* text) { return *this = string_type(text); }
  PObject& operator=(const map_type& members);
  PObject& operator=(const array_type& elements);
  PObject& operator=(const binary_type& slice);
  // Signed values are sign-extended to 64 bits, unsigned ones zero-extended, a bool is 0 or 1.
  template <std::integral T>
  PObject& operator=(T value) {
    clear();
    type_ = TYPE_INTEGER;
    data_.integer = static_cast<integer_type>(value);
    return *this;
  }

  Type type() const { return type_; }
  bool isNull() const { return type_ == TYPE_NULL; }
  bool isArray() const { return type_ == TYPE_ARRAY; }
  bool isMap() const { return type_ == TYPE_MAP; }
  bool isInteger() const { return type_ == TYPE_INTEGER; }
  bool isString() const { return type_ == TYPE_STRING; }
  bool isBinary() const { return type_ == TYPE_BINARY; }
  bool isContainer() const { return isArray() || isMap(); }
  bool isPrimitive() const { return isInteger() || isString() || isBinary(); }
  // True for null, an empty string or container, and a binary without a path; false for integers.
  bool isEmpty() const;
  bool hasMember(std::string_view key) const;
  bool hasMember(const ustring& key) const { return hasMember(key.view()); }
  bool hasMember(const char* key) const { return hasMember(std::string_view(key)); }

  // The const forms never fail: another type gives the empty value.
  const map_type& asMap() const { return isMap() ? *data_.map : empty_map; }
  const array_type& asArray() const { return isArray() ? *data_.array : empty_array; }
  const binary_type& asBinary() const { return isBinary() ? *data_.binary : empty_binary; }
  // The others turn an object of another type into an empty one of the wanted type.
  map_type& asMap();
  array_type& asArray();
  binary_type& asBinary();

  // A string's text, or an integer's low 32 bits in decimal (toString() has the whole value).
  ustring asString() const;
  std::string_view asStringView() const;  // of a string; empty for anything else
  bool asBool() const;                    // not 0, or not isEmpty()
  // Cut to the width without a range check; 0 when the object is no integer.
  integer_type asInteger() const { return isInteger() ? data_.integer : 0; }
  std::uint64_t asUInt64() const { return asInteger(); }
  std::int64_t asInt64() const { return static_cast<std::int64_t>(asInteger()); }
  std::uint32_t asUInt32() const { return static_cast<std::uint32_t>(asInteger()); }
  std::int32_t asInt32() const { return static_cast<std::int32_t>(asInteger()); }
  std::uint16_t asUInt16() const { return static_cast<std::uint16_t>(asInteger()); }
  std::int16_t asInt16() const { return static_cast<std::int16_t>(asInteger()); }
  std::uint8_t asUInt8() const { return static_cast<std::uint8_t>(asInteger()); }
  std::int8_t asInt8() const { return static_cast<std::int8_t>(asInteger()); }

  // A missing member is the empty object for the const form; the other makes the object a map and
  // inserts a null member, so that request["a"]["b"] = 1 builds nested maps.
  const PObject& operator[](std::string_view key) const;
  const PObject& operator[](const ustring& key) const { return (*this)[key.view()]; }
  const PObject& operator[](const char* key) const { return (*this)[std::string_view(key)]; }
  PObject& operator[](std::string_view key);
  PObject& operator[](const ustring& key) { return (*this)[key.view()]; }
  PObject& operator[](const char* key) { return (*this)[std::string_view(key)]; }

  // Const: an element of an array, or the value at that place in a map's key order (a negative
  // index walks backwards from the first); the empty object past the end. Non-const: maps only,
  // anything else throws std::out_of_range; elements of an array are changed through asArray().
  template <std::integral T>
  const PObject& operator[](T index) const {
    return at(static_cast<std::size_t>(index));
  }
  template <std::integral T>
  PObject& operator[](T index) {
    return at(static_cast<std::size_t>(index));
  }

  void clear() noexcept;
  void swap(PObject& other) noexcept {
    std::swap(type_, other.type_);
    std::swap(data_, other.data_);
  }
  // Deep; the target is cleared before the source is read.
  void copy(const PObject& other);
  // For logs: {"key": value, ...}, [value, ...], texts in quotes and not escaped.
  ustring toString() const;

 private:
  union Payload {
    integer_type integer;
    string_type* string;
    binary_type* binary;
    array_type* array;
    map_type* map;
  };

  const PObject& at(std::size_t index) const;
  PObject& at(std::size_t index);
  // Only what is not a container's content.
  void copyShallow(const PObject& other);
  // Frees the payload, moving children that are containers to `pending` first.
  void release(array_type& pending) noexcept;

  Type type_ = TYPE_NULL;
  Payload data_{};
};

inline void swap(PObject& a, PObject& b) noexcept { a.swap(b); }

}  // namespace tolven
