// A server on 127.0.0.1 that does to each of its visitors what a test says, byte by byte if need
// be.
#pragma once

#include <functional>
#include <string_view>
#include <utility>

#include "protocol/object.h"
#include "protocol/stream.h"
#include "support/acceptor.h"

namespace tolven::test {

inline PObject Alive(std::uint32_t seconds) {
  PObject answer;
  answer["alive"] = seconds;
  answer["server"]["package_version"]["build"] = 3317;
  return answer;
}

// One connection, in a thread of its own.
struct Visitor {
  Channel& channel;
  const int number;  // of the connection, from 0 on

  bool ReadRequest(int& command, PObject& request) {
    std::uint8_t byte = 0;
    if (!ReadHeader(channel, byte)) return false;
    command = byte;
    request.clear();
    return PStream().Recv(channel, request) == 0;
  }
  bool ReadRequest() {
    int command = 0;
    PObject request;
    return ReadRequest(command, request);
  }
  bool Answer(const PObject& answer) { return PStream().Send(channel, answer) == 0; }
  bool Write(std::string_view bytes) {
    return channel.Write(bytes.data(), bytes.size()) == 0 && channel.FlushWrite(0) == 0;
  }
  // Lets a client in.
  bool Welcome() { return ReadRequest() && Answer(Alive(60)); }
  // Does nothing until the client goes.
  void Stall() {
    for (std::uint8_t byte = 0; channel.ReadByte(byte) == 0;) {
    }
  }
};

class ScriptedPeer : public Acceptor {
 public:
  using Script = std::function<void(Visitor&)>;

  explicit ScriptedPeer(Script script)
      : Acceptor([script = std::move(script)](Channel& channel, int number) {
          Visitor visitor{channel, number};
          script(visitor);
        }) {}
};

}  // namespace tolven::test
