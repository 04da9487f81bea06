// Which contents must still exist somewhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tolven::test {

using Fingerprint = std::uint64_t;
Fingerprint FingerprintOf(std::string_view content);

class Ledger {
 public:
  explicit Ledger(std::uint64_t seed) : seed_(seed) {}

  // A content that nobody has made before, of `size` bytes (32 at least). From `like` comes what
  // lies behind its first bytes, as far as it goes, so that there is something for a delta.
  std::string Make(std::size_t size, std::string_view like);

  // A content that is whole at a place where it can be found.
  void Written(const std::string& content, const std::string& where);
  // Whoever did this had seen the content: that it is gone is what they wanted.
  void Destroyed(std::string_view content);

  std::size_t written() const { return names_.size(); }
  // Names of contents that nobody wanted gone and that are not in `found`.
  std::vector<std::string> Missing(const std::set<Fingerprint>& found) const;
  // What a content is called in the trace; empty for one that was never whole.
  std::string NameOf(std::string_view content) const;

 private:
  struct Content {
    std::string name;
    bool destroyed = false;
  };

  const std::uint64_t seed_;
  std::size_t made_ = 0;
  std::map<Fingerprint, Content> names_;
};

}  // namespace tolven::test
