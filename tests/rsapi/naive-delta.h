// The delta engine's rules again, slow and plain: what the fast one must write to the byte.
#pragma once

#include <string>

namespace tolven::test {

std::string NaiveDelta(const std::string& basis, const std::string& content, std::size_t block,
                       std::size_t hash);

}  // namespace tolven::test
