// One argument of a log message, kept with its type so that it is formatted by what it is and never
// by what the format string takes it for. Text is not copied: an argument lives no longer than the
// call it was made for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "ustring/ustring.h"

namespace tolven {

template <class T>
inline constexpr bool kIsCharacter =
    std::is_same_v<T, char> || std::is_same_v<T, wchar_t> || std::is_same_v<T, char16_t> ||
    std::is_same_v<T, char32_t> || std::is_same_v<T, char8_t>;

class LogArg {
 public:
  enum class Kind : std::uint8_t {
    kNone,
    kSigned,
    kUnsigned,
    kDouble,
    kChar,    // a code point, or a byte for char
    kNarrow,  // UTF-8, or what was meant to be
    kWide,
    kUtf16,
    kPointer
  };

  constexpr LogArg() = default;

  template <class T>
  requires(std::is_integral_v<T> && !kIsCharacter<T>) constexpr LogArg(T value)
      : kind_(std::is_signed_v<T> ? Kind::kSigned : Kind::kUnsigned),
        bytes_(sizeof(T)),
        number_(static_cast<std::uint64_t>(value)) {}
  template <class T>
  requires std::is_enum_v<T>
  constexpr LogArg(T value) : LogArg(static_cast<std::underlying_type_t<T>>(value)) {}
  template <class T>
  requires std::is_floating_point_v<T>
  constexpr LogArg(T value) : kind_(Kind::kDouble), real_(static_cast<double>(value)) {}
  template <class T>
  requires kIsCharacter<T>
  constexpr LogArg(T value) : kind_(Kind::kChar), bytes_(sizeof(T)), number_(ToCode(value)) {}

  constexpr LogArg(std::string_view text)
      : kind_(Kind::kNarrow), length_(text.size()), narrow_(text.data()) {}
  LogArg(const ustring& text) : LogArg(text.view()) {}
  LogArg(const std::string& text) : LogArg(std::string_view(text)) {}
  constexpr LogArg(const char* text) : LogArg(OrNull(text)) {}
  constexpr LogArg(std::wstring_view text)
      : kind_(Kind::kWide), length_(text.size()), wide_(text.data()) {}
  LogArg(const std::wstring& text) : LogArg(std::wstring_view(text)) {}
  constexpr LogArg(const wchar_t* text)
      : LogArg(text == nullptr ? std::wstring_view(L"(null)") : std::wstring_view(text)) {}
  constexpr LogArg(std::u16string_view text)
      : kind_(Kind::kUtf16), length_(text.size()), utf16_(text.data()) {}
  LogArg(const std::u16string& text) : LogArg(std::u16string_view(text)) {}
  constexpr LogArg(const char16_t* text)
      : LogArg(text == nullptr ? std::u16string_view(u"(null)") : std::u16string_view(text)) {}
  constexpr LogArg(const void* pointer) : kind_(Kind::kPointer), pointer_(pointer) {}
  constexpr LogArg(std::nullptr_t) : LogArg(static_cast<const void*>(nullptr)) {}

  constexpr Kind kind() const { return kind_; }
  constexpr bool is_number() const { return kind_ == Kind::kSigned || kind_ == Kind::kUnsigned; }
  // Of kSigned, kUnsigned and kChar: the value, sign-extended to 64 bits when signed.
  constexpr std::uint64_t number() const { return number_; }
  // The same cut to the width of the argument's type, as hexadecimal and octal show it.
  constexpr std::uint64_t bits() const {
    return bytes_ >= sizeof number_ ? number_ : number_ & ((std::uint64_t{1} << (8 * bytes_)) - 1);
  }
  constexpr double real() const { return real_; }
  constexpr std::string_view narrow() const { return {narrow_, length_}; }
  constexpr std::wstring_view wide() const { return {wide_, length_}; }
  constexpr std::u16string_view utf16() const { return {utf16_, length_}; }
  constexpr const void* pointer() const { return pointer_; }
  constexpr bool is_byte() const { return bytes_ == 1; }

 private:
  template <class T>
  static constexpr std::uint64_t ToCode(T character) {
    return static_cast<std::uint64_t>(static_cast<std::make_unsigned_t<T>>(character));
  }
  static constexpr std::string_view OrNull(const char* text) {
    return text == nullptr ? std::string_view("(null)") : std::string_view(text);
  }

  Kind kind_ = Kind::kNone;
  std::uint8_t bytes_ = 0;  // size of the type of a number or character
  std::size_t length_ = 0;  // of a text, in its own units
  union {
    std::uint64_t number_ = 0;
    double real_;
    const char* narrow_;
    const wchar_t* wide_;
    const char16_t* utf16_;
    const void* pointer_;
  };
};

}  // namespace tolven
