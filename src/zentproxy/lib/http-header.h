// The head of an HTTP answer, as far as a proxy's answer to CONNECT needs it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "zentproxy/lib/proxy-socket.h"

namespace tolven {

struct PROXY_HTTP_HEADER_ENTRY {
  std::string key;
  std::string szValue;
};
using PROXY_HTTP_HEADER_LIST = std::vector<PROXY_HTTP_HEADER_ENTRY>;

// Reads the status line: 0, or -1 for anything else than such a line.
int ZENTProxyGetHttpResponseCode(const ProxySocket& socket, int& code);

// Reads header lines of at most 16 KiB each, up to and with the empty one: 0, or -1, also when they
// do not come to an end. A line that is no "key: value" is passed over.
int ZENTProxyClientParseHttpHeader(const ProxySocket& socket, PROXY_HTTP_HEADER_LIST& list);

// Keys are looked up without regard to case.

// A copy of the first value of the key goes to `value`; false when there is none.
bool ZENTProxyClientHttpHdrListGetValByKey(const PROXY_HTTP_HEADER_LIST& list, std::string_view key,
                                           std::string& value);
// The entry of the key behind `previous`, or the first one when that is null; null after the last.
const PROXY_HTTP_HEADER_ENTRY* ZENTProxyClientHttpHdrListGetNextEntryByKey(
    const PROXY_HTTP_HEADER_LIST& list, std::string_view key,
    const PROXY_HTTP_HEADER_ENTRY* previous);

}  // namespace tolven
