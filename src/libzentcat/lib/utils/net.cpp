#include "libzentcat/lib/utils/net.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <vector>

namespace tolven::TolvenApplication::Net {

namespace {

using Bytes4 = std::array<std::uint8_t, 4>;
using Words6 = std::array<std::uint16_t, 8>;

bool ToNumber(std::string_view text, int base, std::size_t max_digits, unsigned max,
              unsigned& value) {
  if (text.empty() || text.size() > max_digits) return false;
  const char* const end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, value, base);
  return error == std::errc{} && last == end && value <= max;
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

bool Decode4(std::string_view text, Bytes4& bytes) {
  const auto parts = Split(text, '.');
  if (parts.size() != bytes.size()) return false;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    // "010" is ten to some readers and eight to others.
    if (parts[i].size() > 1 && parts[i][0] == '0') return false;
    unsigned value = 0;
    if (!ToNumber(parts[i], 10, 3, 255, value)) return false;
    bytes[i] = static_cast<std::uint8_t>(value);
  }
  return true;
}

// Groups of one side of "::"; the last group of an address may be an IPv4 one.
bool DecodeGroups(std::string_view text, bool is_last, std::vector<std::uint16_t>& words) {
  if (text.empty()) return true;
  const auto groups = Split(text, ':');
  for (std::size_t i = 0; i < groups.size(); ++i) {
    Bytes4 tail{};
    if (is_last && i + 1 == groups.size() && Decode4(groups[i], tail)) {
      words.push_back(static_cast<std::uint16_t>(tail[0] << 8 | tail[1]));
      words.push_back(static_cast<std::uint16_t>(tail[2] << 8 | tail[3]));
      continue;
    }
    unsigned value = 0;
    if (!ToNumber(groups[i], 16, 4, 0xFFFF, value)) return false;
    words.push_back(static_cast<std::uint16_t>(value));
  }
  return true;
}

bool Decode6(std::string_view text, Words6& words) {
  const std::size_t zone = text.find('%');
  if (zone != std::string_view::npos) {
    if (zone + 1 == text.size()) return false;
    text = text.substr(0, zone);
  }
  std::vector<std::uint16_t> front;
  std::vector<std::uint16_t> back;
  const std::size_t gap = text.find("::");
  if (gap == std::string_view::npos) {
    if (!DecodeGroups(text, true, front) || front.size() != words.size()) return false;
  } else {
    if (!DecodeGroups(text.substr(0, gap), false, front)) return false;
    if (!DecodeGroups(text.substr(gap + 2), true, back)) return false;
    if (front.size() + back.size() >= words.size()) return false;
  }
  words.fill(0);
  std::copy(front.begin(), front.end(), words.begin());
  std::copy(back.rbegin(), back.rend(), words.rbegin());
  return true;
}

bool ToPort(std::string_view text, int& port) {
  unsigned value = 0;
  if (!ToNumber(text, 10, 5, 65535, value)) return false;
  port = static_cast<int>(value);
  return true;
}

bool IsLocal4(const Bytes4& a) {
  return a[0] == 127 || a[0] == 10 || (a[0] == 172 && (a[1] & 0xF0) == 16) ||
         (a[0] == 192 && a[1] == 168) || (a[0] == 169 && a[1] == 254);
}

}  // namespace

bool IsIPv4(const std::string& text) {
  Bytes4 bytes{};
  return Decode4(text, bytes);
}

bool IsIPv6(const std::string& text) {
  Words6 words{};
  return Decode6(text, words);
}

bool ParseIPv4(const std::string& text, std::string& address, int& port) {
  const std::size_t colon = text.find(':');
  const std::string host = text.substr(0, colon);
  if (!IsIPv4(host)) return false;
  if (colon != std::string::npos && !ToPort(std::string_view(text).substr(colon + 1), port)) {
    return false;
  }
  address = host;
  return true;
}

bool ParseIPv6(const std::string& text, std::string& address, int& port) {
  std::string host = text;
  std::string_view rest;
  if (!text.empty() && text[0] == '[') {
    const std::size_t end = text.find(']');
    if (end == std::string::npos) return false;
    host = text.substr(1, end - 1);
    rest = std::string_view(text).substr(end + 1);
  }
  if (!IsIPv6(host)) return false;
  if (!rest.empty() && (rest[0] != ':' || !ToPort(rest.substr(1), port))) return false;
  address = host;
  return true;
}

bool IsLocalAddressv4(const std::string& address) {
  Bytes4 bytes{};
  return Decode4(address, bytes) && IsLocal4(bytes);
}

bool IsLocalAddressv6(const std::string& address) {
  Words6 words{};
  if (!Decode6(address, words)) return false;
  if ((words[0] & 0xFE00) == 0xFC00 || (words[0] & 0xFFC0) == 0xFE80) return true;
  for (std::size_t i = 0; i < 5; ++i) {
    if (words[i] != 0) return false;
  }
  if (words[5] == 0xFFFF) {  // an IPv4 address in IPv6 form
    return IsLocal4(
        {static_cast<std::uint8_t>(words[6] >> 8), static_cast<std::uint8_t>(words[6] & 0xFF),
         static_cast<std::uint8_t>(words[7] >> 8), static_cast<std::uint8_t>(words[7] & 0xFF)});
  }
  return words[5] == 0 && words[6] == 0 && words[7] == 1;
}

}  // namespace tolven::TolvenApplication::Net
