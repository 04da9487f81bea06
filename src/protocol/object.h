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
#include <type_traits>
#include <utility>
#include <vector>

#include "ustring/ustring.h"

namespace tolven {

// What an integer is made from: every integral type, bool and enumerators that convert to one.
template <class T>
concept Number = std::integral<T> ||(std::is_enum_v<T>&& std::is_convertible_v<T, std::int64_t>);

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

  // A moved object is null.
  PObject() = default;
  PObject(const PObject& other) { copy(other); }
  PObject(PObject&& other) noexcept : type_(other.type_), data_(other.data_) {
    other.type_ = TYPE_NULL;
  }
  PObject(const char* text) : PObject(string_type(text)) {}
  PObject(const string_type& text) : PObject(string_type(text)) {}
  PObject(string_type&& text);
  template <Number T>
  PObject(T value) : type_(TYPE_INTEGER), data_{static_cast<integer_type>(value)} {}
  ~PObject() {
    if (type_ != TYPE_NULL && type_ != TYPE_INTEGER) free();
  }

  // An object assigned to itself ends null.
  PObject& operator=(const PObject& other) {
    copy(other);
    return *this;
  }
  PObject& operator=(PObject&& other) noexcept;
  PObject& operator=(const string_type& text);
  PObject& operator=(string_type&& text);
  PObject& operator=(const char* text) { return *this = string_type(text); }
  PObject& operator=(const map_type& members);
  PObject& operator=(map_type&& members);
  PObject& operator=(const array_type& elements);
  PObject& operator=(array_type&& elements);
  PObject& operator=(const binary_type& slice);
  // Signed values are sign-extended to 64 bits, unsigned ones zero-extended, a bool is 0 or 1.
  template <Number T>
  PObject& operator=(T value) {
    clear();
    type_ = TYPE_INTEGER;
    data_.integer = static_cast<integer_type>(value);
    return *this;
  }

  // The tag of a payload type.
  template <class T>
  static constexpr Type type_trait();

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
  bool hasMember(const std::string& key) const { return hasMember(std::string_view(key)); }

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
  const PObject& operator[](const std::string& key) const { return (*this)[std::string_view(key)]; }
  PObject& operator[](std::string_view key);
  PObject& operator[](const ustring& key) { return (*this)[key.view()]; }
  PObject& operator[](const char* key) { return (*this)[std::string_view(key)]; }
  PObject& operator[](const std::string& key) { return (*this)[std::string_view(key)]; }

  // Const: an element of an array, or the value at that place in a map's key order (a negative
  // index walks backwards from the first and so finds nothing); the empty object past the end.
  // Non-const: maps only, anything else throws std::out_of_range; elements of an array are changed
  // through asArray().
  template <std::integral T>
  const PObject& operator[](T index) const {
    return at(static_cast<std::size_t>(index));
  }
  template <std::integral T>
  PObject& operator[](T index) {
    return at(static_cast<std::size_t>(index));
  }

  void clear() noexcept {
    if (type_ != TYPE_NULL && type_ != TYPE_INTEGER) free();
    type_ = TYPE_NULL;
  }
  void swap(PObject& other) noexcept {
    std::swap(type_, other.type_);
    std::swap(data_, other.data_);
  }
  // Deep. Copied from itself the object ends null.
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
  // Frees the whole subtree; a null or integer object owns nothing.
  void free() noexcept;
  // Frees one payload, whose children hold no container any more.
  void freePayload() noexcept;
  PObject& firstChild();  // of a container that is not empty
  static void hang(PObject& chain, PObject& container) noexcept;
  template <class Visit>
  void eachChild(Visit visit);
  // Makes this null object a copy of `other`; of a container without its content.
  void copyPayload(const PObject& other);

  Type type_ = TYPE_NULL;
  Payload data_{};
};

template <class T>
constexpr PObject::Type PObject::type_trait() {
  if constexpr (std::is_same_v<T, array_type>) {
    return TYPE_ARRAY;
  } else if constexpr (std::is_same_v<T, map_type>) {
    return TYPE_MAP;
  } else if constexpr (std::is_same_v<T, integer_type>) {
    return TYPE_INTEGER;
  } else if constexpr (std::is_same_v<T, string_type>) {
    return TYPE_STRING;
  } else {
    static_assert(std::is_same_v<T, binary_type>, "no payload type");
    return TYPE_BINARY;
  }
}

inline void swap(PObject& a, PObject& b) noexcept { a.swap(b); }

}  // namespace tolven
