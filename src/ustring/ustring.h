// The system's string. UTF-8 is the authority: lengths and positions count its bytes. A UTF-16 twin
// is built on demand, so that strings which only pass from the wire to the databases never pay for
// a conversion. It cannot hold a NUL byte: every copy stops at the first.
//
// Not locked. c_str() writes the twin also through const access, so a string that several threads
// read as UTF-16 needs its owner's lock; reading the UTF-8 form never writes.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace tolven {

using uchar16_t = char16_t;
// Character of format strings.
using xchar = wchar_t;

class ustring {
 public:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);
  enum normalization_form { NFC = 0, NFD = 1 };

  // Copies take the UTF-8 form alone; a moved string keeps its twin.
  ustring() = default;
  ustring(const ustring& other) : data_(other.data_) {}
  ustring(ustring&& other) noexcept = default;
  ustring(const char* text);  // null counts as empty
  ustring(const uchar16_t* text);
  ustring(std::string text);
  explicit ustring(std::string_view text);
  template <std::same_as<char> Char>
  ustring(Char c) {
    append(1, c);
  }
  ~ustring() = default;

  ustring& operator=(const ustring& other) { return assign_narrow(other.data_); }
  ustring& operator=(ustring&& other) noexcept = default;
  // From all that the constructors take; a template so that `= {}` stays unambiguous.
  template <class T>
  requires(!std::same_as<T, ustring> && std::constructible_from<ustring, const T&>) ustring&
  operator=(const T& text) {
    return assign(text);
  }

  // The narrow forms change the UTF-8 form and drop the twin. The wide forms append to the twin as
  // it stands, without building it first: on a string that was never read wide they keep only what
  // is appended. Counted forms stop at a NUL, too; a position behind the end takes nothing.
  ustring& append(const char* text) { return append_narrow(text_view(text)); }
  ustring& append(const char* text, std::size_t count);
  ustring& append(const uchar16_t* text) { return append_wide(text_view(text)); }
  ustring& append(const uchar16_t* text, std::size_t count);
  ustring& append(std::size_t count, char c);
  ustring& append(std::size_t count, uchar16_t c);
  ustring& append(const ustring& text, std::size_t pos = 0, std::size_t count = npos);
  ustring& append(const std::string& text, std::size_t pos = 0, std::size_t count = npos);

  ustring& assign(const char* text) { return assign_narrow(text_view(text)); }
  ustring& assign(const char* text, std::size_t count);
  ustring& assign(const uchar16_t* text) { return assign_wide(text_view(text)); }
  ustring& assign(const uchar16_t* text, std::size_t count);
  ustring& assign(std::size_t count, char c);
  ustring& assign(std::size_t count, uchar16_t c);
  ustring& assign(const ustring& text, std::size_t pos = 0, std::size_t count = npos);
  ustring& assign(const std::string& text, std::size_t pos = 0, std::size_t count = npos);
  ustring& assign(std::string_view text) { return assign_narrow(text); }
  template <std::same_as<char> Char>
  ustring& assign(Char c) {
    return assign(1, c);
  }

  ustring& operator+=(const ustring& text) { return append(text); }
  ustring& operator+=(const std::string& text) { return append(text); }
  ustring& operator+=(const char* text) { return append(text); }
  ustring& operator+=(const uchar16_t* text) { return append(text); }
  ustring& operator+=(std::string_view text) { return append_narrow(text); }
  ustring& operator+=(char c) { return append(1, c); }
  ustring& operator+=(uchar16_t c) { return append(1, c); }

  // Joins the UTF-8 forms, whatever the right side is.
  template <class T>
  ustring operator+(const T& right) const {
    ustring sum(*this);
    if constexpr (std::is_convertible_v<const T&, const uchar16_t*>) {
      sum += ustring(right);
    } else if constexpr (std::is_same_v<T, uchar16_t>) {
      sum += ustring().append(1, right);
    } else {
      sum += right;
    }
    return sum;
  }

  // UTF-16, never null; empty when the text is not well-formed, with a warning on standard error.
  const uchar16_t* c_str() const;
  const uchar16_t* c_str_utf16() const { return c_str(); }
  const char* c_str_utf8() const { return data_.c_str(); }
  std::string_view view() const { return data_; }
  const std::string& str() const { return data_; }

  std::size_t length() const { return data_.size(); }
  std::size_t size() const { return data_.size(); }
  bool empty() const { return data_.empty(); }
  void clear() {
    data_.clear();
    wdata_.reset();
  }
  // Writing through the reference leaves the twin as it was.
  char& operator[](std::size_t pos) { return data_[pos]; }
  const char& operator[](std::size_t pos) const { return data_[pos]; }

  // Throws std::out_of_range("substr") when `pos` lies behind the end; the count is clamped.
  ustring substr(std::size_t pos = 0, std::size_t count = npos) const;

  // The usual searches, over bytes, for a ustring, std::string, const char* or char. Forward ones
  // give npos when `pos` is not below the length, backward ones start at the last byte when it is
  // out of range.
  template <class Text>
  std::size_t find(const Text& text, std::size_t pos = 0) const {
    return pos < data_.size() ? data_.find(text_view(text), pos) : npos;
  }
  template <class Text>
  std::size_t find_first_of(const Text& text, std::size_t pos = 0) const {
    return pos < data_.size() ? data_.find_first_of(text_view(text), pos) : npos;
  }
  template <class Text>
  std::size_t find_first_not_of(const Text& text, std::size_t pos = 0) const {
    return pos < data_.size() ? data_.find_first_not_of(text_view(text), pos) : npos;
  }
  template <class Text>
  std::size_t rfind(const Text& text, std::size_t pos = npos) const {
    return empty() ? npos : data_.rfind(text_view(text), std::min(pos, data_.size() - 1));
  }
  template <class Text>
  std::size_t find_last_of(const Text& text, std::size_t pos = npos) const {
    return empty() ? npos : data_.find_last_of(text_view(text), std::min(pos, data_.size() - 1));
  }
  template <class Text>
  std::size_t find_last_not_of(const Text& text, std::size_t pos = npos) const {
    return empty() ? npos
                   : data_.find_last_not_of(text_view(text), std::min(pos, data_.size() - 1));
  }

  // Remove the bytes of `set` at one end or both, in place.
  ustring& ltrim(const ustring& set);
  ustring& rtrim(const ustring& set);
  ustring& trim(const ustring& set);

  // Every `from` byte becomes `to`. The twin stays as it was: to be used before it is asked for.
  ustring& replace(char from, char to);
  void swap(ustring& other) noexcept;

  // Bytes as unsigned values: the difference of the first that differ, or 0. With `ignore_case`
  // only A to Z fold.
  int compare(const ustring& other) const { return compare(*this, other, false); }
  int compare(const ustring& other, std::size_t count) const;  // of the first `count` bytes
  static int compare(const ustring& a, const ustring& b, bool ignore_case);

  // Empty when ICU fails, with a warning on standard error.
  ustring normalize(normalization_form form) const { return normalize(*this, form); }
  static ustring normalize(const ustring& text, normalization_form form);
  // Well-formed UTF-8.
  static bool is_valid(const ustring& text);

 private:
  static std::string_view text_view(const ustring& text) { return text.data_; }
  static std::string_view text_view(std::string_view text) { return text; }
  static std::string_view text_view(const std::string& text) { return text; }
  static std::string_view text_view(const char* text) { return text == nullptr ? "" : text; }
  static std::string_view text_view(const char& c) { return {&c, 1}; }
  static std::u16string_view text_view(const uchar16_t* text) {
    return text == nullptr ? u"" : text;
  }
  ustring& append_narrow(std::string_view text);
  ustring& append_wide(std::u16string_view text);
  ustring& assign_narrow(std::string_view text);
  ustring& assign_wide(std::u16string_view text);
  // Build one form from the other; -1 and an empty form when the source is not well-formed.
  int convert_from_data() const;
  int convert_from_wdata();

  std::string data_;
  mutable std::unique_ptr<std::u16string> wdata_;  // null or empty: not computed
};

inline bool operator==(const ustring& a, const ustring& b) { return a.view() == b.view(); }
inline bool operator==(const ustring& a, const std::string& b) { return a.view() == b; }
inline bool operator==(const ustring& a, std::string_view b) { return a.view() == b; }
inline bool operator==(const ustring& a, const char* b) { return a.view() == b; }
inline bool operator<(const ustring& a, const ustring& b) { return a.view() < b.view(); }
inline bool operator>(const ustring& a, const ustring& b) { return b < a; }
// Strict, as callers rely on: both are false for equal strings.
inline bool operator<=(const ustring& a, const ustring& b) {
  return ustring::compare(b, a, false) > 0;
}
inline bool operator>=(const ustring& a, const ustring& b) {
  return ustring::compare(b, a, false) < 0;
}

inline void swap(ustring& a, ustring& b) noexcept { a.swap(b); }
std::ostream& operator<<(std::ostream& out, const ustring& text);
std::istream& operator>>(std::istream& in, ustring& text);

// For ordered and hashed containers that are searched by a piece of text without making a ustring.
struct UStringLess {
  using is_transparent = void;
  static std::string_view View(const ustring& s) { return s.view(); }
  static std::string_view View(std::string_view s) { return s; }
  template <class A, class B>
  bool operator()(const A& a, const B& b) const {
    return View(a) < View(b);
  }
};
struct UStringHash {
  using is_transparent = void;
  std::size_t operator()(const ustring& s) const { return (*this)(s.view()); }
  std::size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
};
struct UStringEqual {
  using is_transparent = void;
  template <class A, class B>
  bool operator()(const A& a, const B& b) const {
    return UStringLess::View(a) == UStringLess::View(b);
  }
};

}  // namespace tolven

template <>
struct std::hash<tolven::ustring> : tolven::UStringHash {};
