// Session tokens: 256 random bits as 64 hexadecimal digits. Only their hashes are kept.
#pragma once

#include <string>

namespace tolven::server {

std::string NewToken();  // empty without random bits
std::string HashOfToken(const std::string& token);
bool EqualInConstantTime(const std::string& a, const std::string& b);

}  // namespace tolven::server
