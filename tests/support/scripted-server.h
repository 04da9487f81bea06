// A server on 127.0.0.1 that answers requests in object form as a test says.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "lib/channel.h"
#include "platform/sockets.h"
#include "protocol/object.h"
#include "protocol/stream.h"

namespace tolven::test {

class ScriptedServer {
 public:
  // Called by the thread of each connection with the command byte and the request, whose action
  // stands under "action". Nothing: the connection is dropped without an answer. After an answer
  // without "error" that asked for it, the channel goes on in TLS.
  using Answer = std::function<std::optional<PObject>(int command, const PObject& request)>;

  // Contents that are sent go into files in `receive_folder`; without one they are refused.
  explicit ScriptedServer(Answer answer, ustring receive_folder = ustring())
      : answer_(std::move(answer)), receive_folder_(std::move(receive_folder)) {
    platform::Sockets& sockets = platform::sockets();
    if (!sockets.Create(4, listener_).ok() || !sockets.BindLoopback(listener_, 0).ok() ||
        !sockets.Listen(listener_, 16).ok() || !sockets.LocalPort(listener_, port_).ok()) {
      throw std::runtime_error("no listener");
    }
    acceptor_ = std::thread([this] { Accept(); });
  }
  ~ScriptedServer() {
    stop_ = 1;
    (void)platform::sockets().ShutDown(listener_);
    acceptor_.join();
    for (std::thread& connection : connections_) connection.join();
    (void)platform::sockets().Close(listener_);
  }
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  int port() const { return port_; }
  int accepted() const { return accepted_; }

 private:
  void Accept() {
    platform::NativeSocket peer = platform::kInvalidSocket;
    while (platform::sockets().Accept(listener_, peer).ok()) {
      ++accepted_;
      connections_.emplace_back([this, peer] { Serve(peer); });
    }
  }

  void Serve(platform::NativeSocket peer) {
    Channel channel;
    channel.SetFlag(&stop_);
    if (channel.Open(peer, true) != 0) return;
    while (ServeRequest(channel)) {
    }
    channel.Close();
  }

  bool ServeRequest(Channel& channel) {
    PStream stream;
    std::uint32_t magic = 0;
    std::uint16_t length = 0;
    std::uint8_t version = 0, command = 0;
    if (channel.ReadInt32(magic) < 0 || channel.ReadByte(version) < 0 ||
        channel.ReadByte(command) < 0 || channel.ReadInt16(length) < 0) {
      return false;
    }
    PObject request;
    if (!receive_folder_.empty()) stream.SetDefaultRecvLocation(receive_folder_);
    if (magic != 0x25521814 || version != 70 || stream.Recv(channel, request) != 0) return false;
    const std::optional<PObject> response = answer_(command, request);
    if (!response || stream.Send(channel, *response) != 0) return false;
    const bool wants_tls =
        request["do_ssl"].asUInt32() != 0 || request["action"].asString() == "encrypt_channel";
    if (!wants_tls || response->hasMember("error")) return true;
    return channel.ConvertToSSLChannel(true) == 0;
  }

  const Answer answer_;
  const ustring receive_folder_;
  std::atomic<int> stop_{0};
  std::atomic<int> accepted_{0};
  platform::NativeSocket listener_ = platform::kInvalidSocket;
  int port_ = 0;
  std::thread acceptor_;
  std::list<std::thread> connections_;  // the acceptor's, until it has ended
};

}  // namespace tolven::test
