#include "chaos/ledger.h"

#include <algorithm>
#include <functional>
#include <random>

namespace tolven::test {

namespace {

constexpr std::size_t kHeader = 32;

}  // namespace

Fingerprint FingerprintOf(std::string_view content) {
  return std::hash<std::string_view>()(content);
}

std::string Ledger::Make(std::size_t size, std::string_view like) {
  std::string content = "#" + std::to_string(++made_) + " of " + std::to_string(seed_) + " ";
  content.resize(kHeader, '.');
  if (like.size() > kHeader) content += like.substr(kHeader, size - std::min(size, kHeader));
  std::mt19937_64 random(seed_ * 1'000'003 + made_);
  while (content.size() < size) content += static_cast<char>('A' + random() % 57);
  return content;
}

void Ledger::Written(const std::string& content, const std::string& where) {
  const std::string number = content.substr(0, content.find(' '));
  names_[FingerprintOf(content)] = {
      number + " (" + std::to_string(content.size()) + " bytes, " + where + ")", false};
}

void Ledger::Destroyed(std::string_view content) {
  const auto found = names_.find(FingerprintOf(content));
  if (found != names_.end()) found->second.destroyed = true;
}

std::vector<std::string> Ledger::Missing(const std::set<Fingerprint>& found) const {
  std::vector<std::string> missing;
  for (const auto& [fingerprint, content] : names_) {
    if (!content.destroyed && !found.contains(fingerprint)) missing.push_back(content.name);
  }
  return missing;
}

std::string Ledger::NameOf(std::string_view content) const {
  const auto found = names_.find(FingerprintOf(content));
  return found == names_.end() ? std::string() : found->second.name;
}

}  // namespace tolven::test
