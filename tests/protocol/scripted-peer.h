// A server on 127.0.0.1 that does to each of its visitors what a test says, byte by byte if need
// be.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "lib/channel.h"
#include "platform/sockets.h"
#include "protocol/object.h"
#include "protocol/stream.h"

namespace tolven::test {

inline PObject Alive(std::uint32_t seconds) {
  PObject answer;
  answer["alive"] = seconds;
  answer["server"]["package_version"]["build"] = 3317;
  return answer;
}

// One connection, in a thread of its own.
struct Visitor {
  Channel channel;
  int number = 0;  // of the connection, from 0 on

  bool ReadRequest(int& command, PObject& request) {
    std::uint32_t magic = 0;
    std::uint16_t length = 0;
    std::uint8_t version = 0, byte = 0;
    if (channel.ReadInt32(magic) < 0 || channel.ReadByte(version) < 0 ||
        channel.ReadByte(byte) < 0 || channel.ReadInt16(length) < 0) {
      return false;
    }
    command = byte;
    request.clear();
    return magic == 0x25521814 && version == 70 && PStream().Recv(channel, request) == 0;
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

class ScriptedPeer {
 public:
  using Script = std::function<void(Visitor&)>;

  explicit ScriptedPeer(Script script) : script_(std::move(script)) {
    platform::Sockets& sockets = platform::sockets();
    if (!sockets.Create(4, listener_).ok() || !sockets.BindLoopback(listener_, 0).ok() ||
        !sockets.Listen(listener_, 64).ok() || !sockets.LocalPort(listener_, port_).ok()) {
      throw std::runtime_error("no listener");
    }
    acceptor_ = std::thread([this] { Accept(); });
  }
  ~ScriptedPeer() {
    stop_ = 1;
    (void)platform::sockets().ShutDown(listener_);
    acceptor_.join();
    for (std::thread& visit : visits_) visit.join();
    (void)platform::sockets().Close(listener_);
  }
  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  int port() const { return port_; }
  int accepted() const { return accepted_; }

 private:
  void Accept() {
    platform::NativeSocket peer = platform::kInvalidSocket;
    while (platform::sockets().Accept(listener_, peer).ok()) {
      visits_.emplace_back([this, peer, number = accepted_++] {
        Visitor visitor;
        visitor.number = number;
        visitor.channel.SetFlag(&stop_);
        if (visitor.channel.Open(peer, true) == 0) script_(visitor);
        visitor.channel.Close();
      });
    }
  }

  const Script script_;
  std::atomic<int> stop_{0};
  std::atomic<int> accepted_{0};
  platform::NativeSocket listener_ = platform::kInvalidSocket;
  int port_ = 0;
  std::thread acceptor_;
  std::list<std::thread> visits_;  // the acceptor's, until it has ended
};

}  // namespace tolven::test
