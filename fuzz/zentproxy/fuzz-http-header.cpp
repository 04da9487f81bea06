// Any bytes as what a proxy says: a header is read to its end and no further, and each type of
// login comes to one of its results. The first byte says how many bytes arrive at a time.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/forwarding-sockets.h"
#include "zentproxy/lib/http-header.h"
#include "zentproxy/lib/proxy-auth.h"

namespace {

using namespace tolven;  // NOLINT: a program of its own
using platform::Status;

void Require(bool held) {
  if (!held) std::abort();
}

// One connection, whose other end has said all that it will.
class MemorySockets : public platform::ForwardingSockets {
 public:
  MemorySockets(std::string_view bytes, std::size_t block)
      : ForwardingSockets(platform::sockets()),
        bytes_(bytes),
        block_(block),
        before_(platform::SetSockets(this)) {}
  ~MemorySockets() override { platform::SetSockets(before_); }

  Status Wait(platform::NativeSocket, platform::SocketWait, int) override { return {}; }
  Status Peek(platform::NativeSocket, void* data, std::size_t size, std::size_t& got) override {
    got = bytes_.copy(static_cast<char*>(data), std::min(size, block_));
    return {};
  }
  Status Receive(platform::NativeSocket socket, void* data, std::size_t size,
                 std::size_t& got) override {
    const Status status = Peek(socket, data, size, got);
    bytes_.remove_prefix(got);
    return status;
  }
  Status Send(platform::NativeSocket, const void*, std::size_t size, std::size_t& sent) override {
    sent = size;
    return {};
  }
  std::string_view rest() const { return bytes_; }

 private:
  std::string_view bytes_;
  const std::size_t block_;
  platform::Sockets* const before_;
};

void ReadHeader(std::string_view bytes, std::size_t block) {
  const MemorySockets sockets(bytes, block);
  PROXY_HTTP_HEADER_LIST list;
  if (ZENTProxyClientParseHttpHeader({0}, list) < 0) return;
  const std::string_view taken = bytes.substr(0, bytes.size() - sockets.rest().size());
  Require(taken == "\n" || taken == "\r\n" || taken.ends_with("\n\n") || taken.ends_with("\n\r\n"));
  for (const auto& [key, value] : list) {
    Require(!key.empty() && key.find_first_of(":\n") == std::string::npos);
    Require(value.find('\n') == std::string::npos && taken.find(value) != std::string_view::npos);
    std::string found;
    Require(ZENTProxyClientHttpHdrListGetValByKey(list, key, found));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::size_t block = std::size_t{data[0]} + 1;
  ReadHeader(bytes, block);
  const PROXY_TARGET_INFO target{"host", 1};
  const PROXY_AUTH_INFO auth{"User", "Password", "", "HOST", PROXY_AUTO_AUTH};
  int results[4] = {};
  for (int type = 0; type < 4; ++type) {
    const MemorySockets sockets(bytes, block);
    results[type] = type == 0   ? ZENTProxyClientHandleNoAuth({0}, target)
                    : type == 1 ? ZENTProxyClientHandleBASICAuth({0}, target, auth)
                    : type == 2 ? ZENTProxyClientHandleNTLMv1Auth({0}, target, auth)
                                : ZENTProxyClientHandleNTLMv2Auth({0}, target, auth);
  }
  Require(results[0] == results[1] && results[2] == results[3]);
  Require(results[0] == results[2] || results[0] == kProxyWantsOther);
  return 0;
}
