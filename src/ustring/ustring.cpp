#include "ustring/ustring.h"

#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <stdexcept>

namespace tolven {
namespace {

template <class Char>
std::basic_string_view<Char> UntilNul(std::basic_string_view<Char> text) {
  return text.substr(0, text.find(Char{}));
}

// The part of a counted text before its NUL, which may stand before `count`.
template <class Char>
std::basic_string_view<Char> Counted(const Char* text, std::size_t count) {
  std::size_t size = 0;
  while (size < count && text[size] != Char{}) ++size;
  return {text, size};
}

constexpr std::array<unsigned char, 256> FoldTable() {
  std::array<unsigned char, 256> table{};
  for (std::size_t i = 0; i < table.size(); ++i) {
    table[i] = static_cast<unsigned char>(i >= 'A' && i <= 'Z' ? i - 'A' + 'a' : i);
  }
  return table;
}
constexpr auto kFold = FoldTable();

void Warn(const char* what, UErrorCode status, int line) {
  std::cerr << "Warning: " << what << ": error code " << status << " at line " << line << "\n";
}

int32_t IcuLength(std::size_t size) { return static_cast<int32_t>(size); }

}  // namespace

ustring::ustring(const ustring& other)
    : data_(other.data_),
      wdata_(other.wdata_ ? std::make_unique<std::u16string>(*other.wdata_) : nullptr) {}
ustring::ustring(const char* text) : data_(text == nullptr ? "" : text) {}
ustring::ustring(const uchar16_t* text) { assign(text); }
ustring::ustring(const std::string& text) : data_(UntilNul<char>(text)) {}
ustring::ustring(std::string_view text) : data_(UntilNul(text)) {}
ustring::ustring(char c) { append(1, c); }

ustring& ustring::operator=(const ustring& other) {
  if (this != &other) *this = ustring(other);
  return *this;
}

ustring& ustring::operator=(std::string_view text) { return *this = ustring(text); }

// `text` may be part of this string.
ustring& ustring::append_narrow(std::string_view text) {
  data_.append(UntilNul(text));
  if (wdata_) wdata_->clear();
  return *this;
}

ustring& ustring::append_wide(std::u16string_view text) {
  const std::u16string added(text);
  if (!wdata_) wdata_ = std::make_unique<std::u16string>();
  *wdata_ += added;
  convert_from_wdata();
  return *this;
}

ustring& ustring::append(const char* text, std::size_t count) {
  return append_narrow(Counted(text, count));
}
ustring& ustring::append(const uchar16_t* text) {
  return append_wide(text == nullptr ? std::u16string_view() : std::u16string_view(text));
}
ustring& ustring::append(const uchar16_t* text, std::size_t count) {
  return append_wide(Counted(text, count));
}
ustring& ustring::append(std::size_t count, char c) { return append_narrow(std::string(count, c)); }
ustring& ustring::append(std::size_t count, uchar16_t c) {
  return append_wide(UntilNul<char16_t>(std::u16string(count, c)));
}
ustring& ustring::append(const ustring& text, std::size_t pos, std::size_t count) {
  return append_narrow(pos < text.size() ? text.view().substr(pos, count) : std::string_view());
}
ustring& ustring::append(const std::string& text, std::size_t pos, std::size_t count) {
  return append_narrow(pos < text.size() ? std::string_view(text).substr(pos, count)
                                         : std::string_view());
}

ustring& ustring::assign(const char* text) { return *this = ustring(text); }
ustring& ustring::assign(const char* text, std::size_t count) {
  return *this = ustring(Counted(text, count));
}
ustring& ustring::assign(const uchar16_t* text) {
  ustring fresh;
  fresh.append(text);
  return *this = std::move(fresh);
}
ustring& ustring::assign(const uchar16_t* text, std::size_t count) {
  ustring fresh;
  fresh.append(text, count);
  return *this = std::move(fresh);
}
ustring& ustring::assign(std::size_t count, char c) {
  return *this = ustring(std::string(count, c));
}
ustring& ustring::assign(std::size_t count, uchar16_t c) {
  ustring fresh;
  fresh.append(count, c);
  return *this = std::move(fresh);
}
ustring& ustring::assign(const ustring& text, std::size_t pos, std::size_t count) {
  ustring fresh;
  fresh.append(text, pos, count);
  return *this = std::move(fresh);
}
ustring& ustring::assign(const std::string& text, std::size_t pos, std::size_t count) {
  ustring fresh;
  fresh.append(text, pos, count);
  return *this = std::move(fresh);
}

const uchar16_t* ustring::c_str() const {
  if ((!wdata_ || wdata_->empty()) && !data_.empty()) convert_from_data();
  return wdata_ ? wdata_->c_str() : u"";
}

ustring ustring::substr(std::size_t pos, std::size_t count) const {
  if (pos > data_.size()) throw std::out_of_range("substr");
  return ustring(view().substr(pos, count));
}

std::size_t ustring::find_in(std::string_view s, std::size_t pos) const {
  return pos < data_.size() ? data_.find(s, pos) : npos;
}

std::size_t ustring::rfind(const std::string& s, std::size_t pos) const {
  return data_.rfind(s, pos);
}
std::size_t ustring::rfind(const ustring& s, std::size_t pos) const {
  return data_.rfind(s.data_, pos);
}
std::size_t ustring::rfind(const char* s, std::size_t pos) const { return data_.rfind(s, pos); }
std::size_t ustring::rfind(char c, std::size_t pos) const { return data_.rfind(c, pos); }

// The four searches for bytes of a set, each in its four forms.
#define TOLVEN_SET_SEARCH(name)                                              \
  std::size_t ustring::name(const std::string& set, std::size_t pos) const { \
    return data_.name(set, pos);                                             \
  }                                                                          \
  std::size_t ustring::name(const ustring& set, std::size_t pos) const {     \
    return data_.name(set.data_, pos);                                       \
  }                                                                          \
  std::size_t ustring::name(const char* set, std::size_t pos) const {        \
    return data_.name(set, pos);                                             \
  }                                                                          \
  std::size_t ustring::name(char c, std::size_t pos) const { return data_.name(c, pos); }
TOLVEN_SET_SEARCH(find_first_of)
TOLVEN_SET_SEARCH(find_first_not_of)
TOLVEN_SET_SEARCH(find_last_of)
TOLVEN_SET_SEARCH(find_last_not_of)
#undef TOLVEN_SET_SEARCH

ustring& ustring::ltrim(const ustring& set) {
  const std::size_t kept = std::min(data_.find_first_not_of(set.data_), data_.size());
  return kept > 0 ? *this = ustring(view().substr(kept)) : *this;
}
ustring& ustring::rtrim(const ustring& set) {
  const std::size_t kept = data_.find_last_not_of(set.data_) + 1;
  return kept < data_.size() ? *this = ustring(view().substr(0, kept)) : *this;
}
ustring& ustring::trim(const ustring& set) { return ltrim(set).rtrim(set); }

ustring& ustring::replace(char from, char to) {
  std::replace(data_.begin(), data_.end(), from, to);
  data_.resize(UntilNul(view()).size());
  return *this;
}

void ustring::swap(ustring& other) noexcept {
  data_.swap(other.data_);
  wdata_.swap(other.wdata_);
}

int ustring::compare(const ustring& other, std::size_t count) const {
  return compare(ustring(view().substr(0, count)), ustring(other.view().substr(0, count)), false);
}

int ustring::compare(const ustring& a, const ustring& b, bool ignore_case) {
  const char* const x = a.c_str_utf8();
  const char* const y = b.c_str_utf8();
  for (std::size_t i = 0;; ++i) {
    auto p = static_cast<unsigned char>(x[i]);
    auto q = static_cast<unsigned char>(y[i]);
    if (ignore_case) {
      p = kFold[p];
      q = kFold[q];
    }
    if (p != q || p == 0) return p - q;
  }
}

int ustring::convert_from_data() const {
  if (!wdata_) wdata_ = std::make_unique<std::u16string>();
  wdata_->clear();
  int32_t size = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(nullptr, 0, &size, data_.data(), IcuLength(data_.size()), &status);
  if (status == U_BUFFER_OVERFLOW_ERROR || U_SUCCESS(status)) {
    wdata_->resize(static_cast<std::size_t>(size) + 1);
    status = U_ZERO_ERROR;
    u_strFromUTF8(wdata_->data(), size + 1, &size, data_.data(), IcuLength(data_.size()), &status);
  }
  if (U_FAILURE(status)) {
    Warn("u_strFromUTF8", status, __LINE__);
    wdata_->clear();
    return -1;
  }
  wdata_->resize(static_cast<std::size_t>(size));
  return 0;
}

int ustring::convert_from_wdata() {
  data_.clear();
  int32_t size = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8(nullptr, 0, &size, wdata_->data(), IcuLength(wdata_->size()), &status);
  if (status == U_BUFFER_OVERFLOW_ERROR || U_SUCCESS(status)) {
    data_.resize(static_cast<std::size_t>(size) + 1);
    status = U_ZERO_ERROR;
    u_strToUTF8(data_.data(), size + 1, &size, wdata_->data(), IcuLength(wdata_->size()), &status);
  }
  if (U_FAILURE(status)) {
    Warn("u_strToUTF8", status, __LINE__);
    data_.clear();
    return -1;
  }
  data_.resize(static_cast<std::size_t>(size));
  return 0;
}

ustring ustring::normalize(const ustring& text, normalization_form form) {
  ustring result;
  if (text.empty()) return result;
  UErrorCode status = U_ZERO_ERROR;
  const UNormalizer2* const normalizer =
      unorm2_getInstance(nullptr, "nfc", form == NFC ? UNORM2_COMPOSE : UNORM2_DECOMPOSE, &status);
  if (U_FAILURE(status)) {
    Warn("unorm2_getInstance", status, __LINE__);
    return result;
  }
  text.c_str();
  const std::u16string& source = *text.wdata_;
  const int32_t size =
      unorm2_normalize(normalizer, source.data(), IcuLength(source.size()), nullptr, 0, &status);
  if (status == U_BUFFER_OVERFLOW_ERROR || U_SUCCESS(status)) {
    status = U_ZERO_ERROR;
    result.wdata_ = std::make_unique<std::u16string>(static_cast<std::size_t>(size) + 1, u'\0');
    unorm2_normalize(normalizer, source.data(), IcuLength(source.size()), result.wdata_->data(),
                     size + 1, &status);
  }
  if (U_FAILURE(status)) {
    Warn("unorm2_normalize", status, __LINE__);
    return ustring();
  }
  result.wdata_->resize(static_cast<std::size_t>(size));
  result.convert_from_wdata();
  return result;
}

bool ustring::is_valid(const ustring& text) {
  if (text.empty()) return true;
  int32_t size = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(nullptr, 0, &size, text.data_.data(), IcuLength(text.size()), &status);
  return status != U_INVALID_CHAR_FOUND;
}

std::ostream& operator<<(std::ostream& out, const ustring& text) { return out << text.view(); }

std::istream& operator>>(std::istream& in, ustring& text) {
  std::string token;
  in >> token;
  text = token;
  return in;
}

}  // namespace tolven
