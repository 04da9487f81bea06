// A server on 127.0.0.1 that answers requests in object form as a test says.
#pragma once

#include <functional>
#include <optional>
#include <utility>

#include "protocol/object.h"
#include "protocol/stream.h"
#include "support/acceptor.h"

namespace tolven::test {

class ScriptedServer {
 public:
  // Called by the thread of each connection with the command byte and the request, whose action
  // stands under "action". Nothing: the connection is dropped without an answer. After an answer
  // without "error" that asked for it, the channel goes on in TLS.
  using Answer = std::function<std::optional<PObject>(int command, const PObject& request)>;

  // Contents that are sent go into files in `receive_folder`; without one they are refused.
  explicit ScriptedServer(Answer answer, ustring receive_folder = ustring())
      : answer_(std::move(answer)),
        receive_folder_(std::move(receive_folder)),
        acceptor_([this](Channel& channel, int) {
          while (ServeRequest(channel)) {
          }
        }) {}

  int port() const { return acceptor_.port(); }
  int accepted() const { return acceptor_.accepted(); }

 private:
  bool ServeRequest(Channel& channel) {
    PStream stream;
    std::uint8_t command = 0;
    if (!ReadHeader(channel, command)) return false;
    PObject request;
    if (!receive_folder_.empty()) stream.SetDefaultRecvLocation(receive_folder_);
    if (stream.Recv(channel, request) != 0) return false;
    const std::optional<PObject> response = answer_(command, request);
    if (!response || stream.Send(channel, *response) != 0) return false;
    const bool wants_tls =
        request["do_ssl"].asUInt32() != 0 || request["action"].asString() == "encrypt_channel";
    if (!wants_tls || response->hasMember("error")) return true;
    return channel.ConvertToSSLChannel(true) == 0;
  }

  const Answer answer_;
  const ustring receive_folder_;
  Acceptor acceptor_;  // the last: it serves from the start
};

}  // namespace tolven::test
