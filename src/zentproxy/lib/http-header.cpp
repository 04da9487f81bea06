#include "zentproxy/lib/http-header.h"

#include <algorithm>
#include <charconv>

#include "zentproxy/lib/proxy-log.h"

namespace tolven {

namespace {

constexpr std::size_t kMaxStatusLine = 1024;
constexpr std::size_t kMaxLine = 16 * 1024;  // the answer to a negotiation may be long
constexpr std::size_t kMaxHeader = 256 * 1024;
constexpr int kSeconds = 10;
constexpr std::string_view kBlanks = " \t";

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsKey(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Lower(x) == Lower(y); });
}

std::string_view Trim(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

void AddLine(const std::string& line, PROXY_HTTP_HEADER_LIST& list) {
  const std::size_t colon = line.find(':');
  if (colon == std::string::npos || colon == 0) return;
  const std::string_view text = line;
  list.push_back({line.substr(0, colon), std::string(Trim(text.substr(colon + 1)))});
}

// "HTTP/1.1 200 and words".
bool ReadCode(std::string_view line, int& code) {
  constexpr std::string_view kStart = "HTTP/x.x";
  if (line.size() < kStart.size() || !line.starts_with(kStart.substr(0, 5)) || line[6] != '.') {
    return false;
  }
  line = Trim(line.substr(kStart.size()));
  return std::from_chars(line.data(), line.data() + line.size(), code).ec == std::errc{};
}

}  // namespace

int ZENTProxyGetHttpResponseCode(const ProxySocket& socket, int& code) {
  std::string line;
  if (ZENTProxyClientReadOneLine(socket, line, kMaxStatusLine, kSeconds) < 0) {
    LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyhttp [%d]No response from proxy\n", __LINE__);
    return -1;
  }
  if (ReadCode(line, code)) return 0;
  LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyhttp [%d]No HTTP response: %s\n", __LINE__, line);
  return -1;
}

int ZENTProxyClientParseHttpHeader(const ProxySocket& socket, PROXY_HTTP_HEADER_LIST& list) {
  std::string line;
  list.clear();
  for (std::size_t size = 0; size <= kMaxHeader; size += line.size() + 1) {
    if (ZENTProxyClientReadOneLine(socket, line, kMaxLine, kSeconds) < 0) {
      LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyhttp [%d]The header breaks off\n", __LINE__);
      return -1;
    }
    if (line.empty()) return 0;
    AddLine(line, list);
  }
  LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyhttp [%d]The header has no end\n", __LINE__);
  return -1;
}

bool ZENTProxyClientHttpHdrListGetValByKey(const PROXY_HTTP_HEADER_LIST& list, std::string_view key,
                                           std::string& value) {
  const auto* const entry = ZENTProxyClientHttpHdrListGetNextEntryByKey(list, key, nullptr);
  if (entry == nullptr) return false;
  value = entry->szValue;
  return true;
}

const PROXY_HTTP_HEADER_ENTRY* ZENTProxyClientHttpHdrListGetNextEntryByKey(
    const PROXY_HTTP_HEADER_LIST& list, std::string_view key,
    const PROXY_HTTP_HEADER_ENTRY* previous) {
  const auto start =
      previous == nullptr ? list.begin() : list.begin() + (previous - list.data()) + 1;
  const auto found =
      std::find_if(start, list.end(), [&](const auto& entry) { return IsKey(entry.key, key); });
  return found == list.end() ? nullptr : &*found;
}

}  // namespace tolven
