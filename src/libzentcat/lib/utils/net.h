// Numeric addresses as text. No look-ups, no system calls.
#pragma once

#include <string>

namespace tolven::TolvenApplication::Net {

// Four decimal numbers from 0 to 255.
bool IsIPv4(const std::string& text);
// Any form of an IPv6 literal, with or without a "%zone".
bool IsIPv6(const std::string& text);

// "1.2.3.4" or "1.2.3.4:80". `port` is left alone when the text has none.
bool ParseIPv4(const std::string& text, std::string& address, int& port);
// "::1", "[::1]" or "[::1]:80", likewise.
bool ParseIPv6(const std::string& text, std::string& address, int& port);

// Addresses that are not reachable from outside the site: loopback, private and link-local.
bool IsLocalAddressv4(const std::string& address);
bool IsLocalAddressv6(const std::string& address);

}  // namespace tolven::TolvenApplication::Net
