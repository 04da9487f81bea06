#include "platform/peer-table-linux.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace tolven::platform {

namespace {

// Columns between the two addresses and the user, and between the user and the inode.
constexpr int kToUser = 4;   // state, queues, timer, retransmits
constexpr int kToInode = 1;  // time-out

std::string_view NextWord(std::string_view& line) {
  const std::size_t begin = line.find_first_not_of(' ');
  if (begin == std::string_view::npos) return line = {};
  const std::size_t end = line.find(' ', begin);
  const std::string_view word = line.substr(begin, end - begin);
  line.remove_prefix(end == std::string_view::npos ? line.size() : end);
  return word;
}

bool ParseNumber(std::string_view word, std::uint64_t& number) {
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return error == std::errc() && end == word.data() + word.size();
}

}  // namespace

std::string TableForm(const sockaddr_storage& address) {
  std::uint32_t words[4];
  std::size_t count = 0;
  in_port_t port = 0;
  if (address.ss_family == AF_INET) {
    const auto& in = reinterpret_cast<const sockaddr_in&>(address);
    words[0] = in.sin_addr.s_addr;
    count = 1;
    port = in.sin_port;
  } else if (address.ss_family == AF_INET6) {
    const auto& in = reinterpret_cast<const sockaddr_in6&>(address);
    std::memcpy(words, &in.sin6_addr, sizeof words);
    count = 4;
    port = in.sin6_port;
  }
  std::string text;
  char buffer[16];
  for (std::size_t i = 0; i < count; ++i) {
    text.append(buffer,
                static_cast<std::size_t>(std::snprintf(buffer, sizeof buffer, "%08X", words[i])));
  }
  if (count == 0) return text;
  return text.append(buffer, static_cast<std::size_t>(std::snprintf(buffer, sizeof buffer, ":%04X",
                                                                    unsigned{ntohs(port)})));
}

std::optional<uid_t> FindHolder(std::string_view table, std::string_view local,
                                std::string_view remote) {
  while (!table.empty()) {
    const std::size_t end = table.find('\n');
    std::string_view line = table.substr(0, end);
    table.remove_prefix(end == std::string_view::npos ? table.size() : end + 1);
    NextWord(line);  // the number of the line
    if (NextWord(line) != local || NextWord(line) != remote) continue;
    for (int i = 0; i < kToUser; ++i) NextWord(line);
    std::uint64_t user = 0;
    std::uint64_t inode = 0;
    if (!ParseNumber(NextWord(line), user)) continue;
    for (int i = 0; i < kToInode; ++i) NextWord(line);
    if (!ParseNumber(NextWord(line), inode) || inode == 0) continue;
    return static_cast<uid_t>(user);
  }
  return std::nullopt;
}

}  // namespace tolven::platform
