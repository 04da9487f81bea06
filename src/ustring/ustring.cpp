#include "ustring/ustring.h"

#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <utility>

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

std::string_view Slice(std::string_view text, std::size_t pos, std::size_t count) {
  return pos < text.size() ? text.substr(pos, count) : std::string_view();
}

constexpr std::array<unsigned char, 256> FoldTable() {
  std::array<unsigned char, 256> table{};
  for (std::size_t i = 0; i < table.size(); ++i) {
    table[i] = static_cast<unsigned char>(i >= 'A' && i <= 'Z' ? i - 'A' + 'a' : i);
  }
  return table;
}
constexpr auto kFold = FoldTable();

// The end counts as a NUL, which differs from every byte of the longer text.
int ByteAt(std::string_view text, std::size_t i) {
  return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
}

int Difference(std::string_view a, std::string_view b) {
  const auto [x, y] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  const auto i = static_cast<std::size_t>(x - a.begin());
  return ByteAt(a, i) - ByteAt(b, i);
}

int FoldedDifference(std::string_view a, std::string_view b) {
  const std::size_t longer = std::max(a.size(), b.size());
  for (std::size_t i = 0; i < longer; ++i) {
    const int difference = kFold[static_cast<std::size_t>(ByteAt(a, i))] -
                           kFold[static_cast<std::size_t>(ByteAt(b, i))];
    if (difference != 0) return difference;
  }
  return 0;
}

// One write for each warning, so that those of several threads do not mix.
void Warn(const char* what, UErrorCode status, int line) {
  std::cerr << "Warning: " + std::string(what) + ": error code " + std::to_string(status) +
                   " at line " + std::to_string(line) + "\n";
}

// ICU counts in 32 bits; a longer text is refused like one that is not well-formed.
int32_t IcuLength(std::size_t size, UErrorCode& status) {
  if (size < INT32_MAX) return static_cast<int32_t>(size);
  status = U_ILLEGAL_ARGUMENT_ERROR;
  return 0;
}

// A pre-flight always ends with a full buffer of size 0.
void AcceptOverflow(UErrorCode& status) {
  if (status == U_BUFFER_OVERFLOW_ERROR) status = U_ZERO_ERROR;
}

}  // namespace

ustring::ustring(const char* text) : data_(text_view(text)) {}
ustring::ustring(const uchar16_t* text) { assign(text); }
ustring::ustring(std::string text) : data_(std::move(text)) {
  const std::size_t end = data_.find('\0');
  if (end != std::string::npos) data_.resize(end);
}
ustring::ustring(std::string_view text) : data_(UntilNul(text)) {}

// In all four `text` may be part of this string.
ustring& ustring::append_narrow(std::string_view text) {
  data_.append(UntilNul(text));
  wdata_.reset();
  return *this;
}

ustring& ustring::append_wide(std::u16string_view text) {
  if (!wdata_) wdata_ = std::make_unique<std::u16string>();
  wdata_->append(text);
  convert_from_wdata();
  return *this;
}

ustring& ustring::assign_narrow(std::string_view text) {
  data_.assign(UntilNul(text));
  wdata_.reset();
  return *this;
}

ustring& ustring::assign_wide(std::u16string_view text) {
  wdata_ = std::make_unique<std::u16string>(text);
  convert_from_wdata();
  return *this;
}

ustring& ustring::append(const char* text, std::size_t count) {
  return append_narrow(Counted(text, count));
}
ustring& ustring::append(const uchar16_t* text, std::size_t count) {
  return append_wide(Counted(text, count));
}
ustring& ustring::append(std::size_t count, char c) { return append_narrow(std::string(count, c)); }
ustring& ustring::append(std::size_t count, uchar16_t c) {
  return append_wide(UntilNul<char16_t>(std::u16string(count, c)));
}
ustring& ustring::append(const ustring& text, std::size_t pos, std::size_t count) {
  return append_narrow(Slice(text.view(), pos, count));
}
ustring& ustring::append(const std::string& text, std::size_t pos, std::size_t count) {
  return append_narrow(Slice(text, pos, count));
}

ustring& ustring::assign(const char* text, std::size_t count) {
  return assign_narrow(Counted(text, count));
}
ustring& ustring::assign(const uchar16_t* text, std::size_t count) {
  return assign_wide(Counted(text, count));
}
ustring& ustring::assign(std::size_t count, char c) { return assign_narrow(std::string(count, c)); }
ustring& ustring::assign(std::size_t count, uchar16_t c) {
  return assign_wide(UntilNul<char16_t>(std::u16string(count, c)));
}
ustring& ustring::assign(const ustring& text, std::size_t pos, std::size_t count) {
  return assign_narrow(Slice(text.view(), pos, count));
}
ustring& ustring::assign(const std::string& text, std::size_t pos, std::size_t count) {
  return assign_narrow(Slice(text, pos, count));
}

const uchar16_t* ustring::c_str() const {
  if ((!wdata_ || wdata_->empty()) && !data_.empty()) convert_from_data();
  return wdata_ ? wdata_->c_str() : u"";
}

ustring ustring::substr(std::size_t pos, std::size_t count) const {
  if (pos > data_.size()) throw std::out_of_range("substr");
  return ustring(view().substr(pos, count));
}

ustring& ustring::ltrim(const ustring& set) {
  const std::size_t kept = std::min(data_.find_first_not_of(set.data_), data_.size());
  return kept > 0 ? assign_narrow(view().substr(kept)) : *this;
}
ustring& ustring::rtrim(const ustring& set) {
  const std::size_t kept = data_.find_last_not_of(set.data_) + 1;
  return kept < data_.size() ? assign_narrow(view().substr(0, kept)) : *this;
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
  return Difference(view().substr(0, count), other.view().substr(0, count));
}

int ustring::compare(const ustring& a, const ustring& b, bool ignore_case) {
  return ignore_case ? FoldedDifference(a.data_, b.data_) : Difference(a.data_, b.data_);
}

// UTF-16 never needs more units than UTF-8 has bytes, so one pass does.
int ustring::convert_from_data() const {
  UErrorCode status = U_ZERO_ERROR;
  const int32_t length = IcuLength(data_.size(), status);
  int32_t size = 0;
  auto wide = std::make_unique<std::u16string>(static_cast<std::size_t>(length), u'\0');
  u_strFromUTF8(wide->data(), length, &size, data_.data(), length, &status);
  if (U_FAILURE(status)) {
    Warn("u_strFromUTF8", status, __LINE__);
    wdata_.reset();
    return -1;
  }
  wide->resize(static_cast<std::size_t>(size));
  wdata_ = std::move(wide);
  return 0;
}

int ustring::convert_from_wdata() {
  UErrorCode status = U_ZERO_ERROR;
  const int32_t length = IcuLength(wdata_->size(), status);
  int32_t size = 0;
  u_strToUTF8(nullptr, 0, &size, wdata_->data(), length, &status);
  AcceptOverflow(status);
  if (U_SUCCESS(status)) {
    data_.resize(static_cast<std::size_t>(size));
    u_strToUTF8(data_.data(), size, &size, wdata_->data(), length, &status);
  }
  if (U_FAILURE(status)) {
    Warn("u_strToUTF8", status, __LINE__);
    data_.clear();
    return -1;
  }
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
  const uchar16_t* const source = text.c_str();
  const int32_t length = text.wdata_ ? IcuLength(text.wdata_->size(), status) : 0;
  const int32_t size = unorm2_normalize(normalizer, source, length, nullptr, 0, &status);
  AcceptOverflow(status);
  if (U_SUCCESS(status)) {
    result.wdata_ = std::make_unique<std::u16string>(static_cast<std::size_t>(size), u'\0');
    unorm2_normalize(normalizer, source, length, result.wdata_->data(), size, &status);
  }
  if (U_FAILURE(status)) {
    Warn("unorm2_normalize", status, __LINE__);
    return ustring();
  }
  result.convert_from_wdata();
  return result;
}

bool ustring::is_valid(const ustring& text) {
  if (text.empty()) return true;
  int32_t size = 0;
  UErrorCode status = U_ZERO_ERROR;
  const int32_t length = IcuLength(text.size(), status);
  u_strFromUTF8(nullptr, 0, &size, text.data_.data(), length, &status);
  return status != U_INVALID_CHAR_FOUND;
}

std::ostream& operator<<(std::ostream& out, const ustring& text) { return out << text.view(); }

std::istream& operator>>(std::istream& in, ustring& text) {
  std::string token;
  in >> token;
  text = ustring(std::move(token));
  return in;
}

}  // namespace tolven
