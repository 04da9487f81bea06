#include "acl/acl-rule.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <tuple>

namespace tolven::ACL_API {

namespace {

// Takes decimal tokens off a text, until one is missing or no number.
class Tokens {
 public:
  explicit Tokens(std::string_view text) : rest_(text) {}

  template <class Number>
  bool Take(Number& number) {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(' '), rest_.size()));
    const auto result = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
    if (result.ec != std::errc{}) return false;
    rest_.remove_prefix(static_cast<std::size_t>(result.ptr - rest_.data()));
    return rest_.empty() || rest_.front() == ' ';
  }

 private:
  std::string_view rest_;
};

bool TakeEntry(Tokens& tokens, ACLRule::Entry& entry) {
  int type = 0, is_allow = 0;
  // Ids have 32 bits and are written with or without a sign.
  std::int64_t id = 0;
  if (!tokens.Take(type) || !tokens.Take(id) || id < INT32_MIN || id > UINT32_MAX ||
      !tokens.Take(entry.perm) || !tokens.Take(entry.inherit) || !tokens.Take(is_allow) ||
      !tokens.Take(entry.level)) {
    return false;
  }
  entry.type = static_cast<ZENT_ACL_ID_TYPE>(type);
  entry.id = static_cast<int>(id);
  entry.is_allow = is_allow != 0;
  return true;
}

auto Order(const ACLRule::Entry& e) {
  return std::tuple(e.is_allow, static_cast<int>(e.type), e.id, e.perm, e.inherit, e.level);
}

}  // namespace

bool ACLRule::Entry::operator<(const Entry& other) const { return Order(*this) < Order(other); }

std::string ACLRule::Entry::toString() const {
  return "Type: " + std::to_string(type) + ", ID: " + std::to_string(id) +
         ", Permission: " + std::to_string(perm) + ", Inherit: " + std::to_string(inherit) +
         ", Allow: " + std::to_string(is_allow) + ", Level: " + std::to_string(level);
}

void ACLRule::set(const std::string& text) {
  clear();
  Tokens tokens(text);
  unsigned count = 0;
  if (!tokens.Take(version)) {
    version = -1;
    return;
  }
  if (!tokens.Take(arch_bit) || !tokens.Take(count)) return;
  // What is announced is not believed: the list is as long as its text.
  Entry read;
  for (; count > 0 && TakeEntry(tokens, read); --count) entry.push_back(read);
  std::sort(entry.begin(), entry.end());
}

std::string ACLRule::get() const {
  if (version < 0) return {};
  std::string entries;
  unsigned count = 0;
  for (const Entry& e : entry) {
    if (e.level != 0) continue;
    ++count;
    entries += std::to_string(e.type) + " " + std::to_string(e.id) + " " + std::to_string(e.perm) +
               " " + std::to_string(e.inherit) + " " + std::to_string(e.is_allow) + " 0 ";
  }
  return std::to_string(version) + " " + std::to_string(arch_bit) + " " + std::to_string(count) +
         " " + entries;
}

bool ACLRule::getEntry(int index, Entry& out) const {
  if (index < 0 || index >= getEntryNum()) return false;
  out = entry[static_cast<std::size_t>(index)];
  return true;
}

void ACLRule::addACE(const Entry& added) {
  if (version < 0) {
    version = 1;
    arch_bit = ZENTACL_ARCHIVE_HAS_ACL | ZENTACL_ARCHIVE_SUPPORT_ACL;
  }
  entry.insert(std::upper_bound(entry.begin(), entry.end(), added), added);
}

std::string ACLRule::toString() const {
  std::string text;
  for (const Entry& e : entry) text += "[" + e.toString() + "]";
  return text;
}

}  // namespace tolven::ACL_API
