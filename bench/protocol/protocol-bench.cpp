// Requests over loopback, plain and TLS: ProtocolClient beside bare exchanges of the same trees on
// a channel that is held open, and four of them on one connection beside one. Wanted, over TLS: 0.7
// of the bare rate, and 1.6 times the rate of one.

#include <benchmark/benchmark.h>

#include <memory>

#include "client/core/protocol-client.h"
#include "lib/proto-common.h"
#include "protocol/scripted-peer.h"
#include "transport/certificates.h"

namespace tolven {
namespace {

using test::ScriptedPeer;
using test::Visitor;

void Require(bool held) {
  if (!held) std::abort();
}

PObject DownloadRequest() {
  PObject request;
  InitRequest(request, "download");
  request["session"] = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
  request["view_id"] = 3;
  request["node_id"] = 0;
  request["path"] = "/Documents/2023/Letters/To the bank about the new account.docx";
  request["sync_id"] = 123'456;
  request["mtime"] = 0;
  return request;
}

PObject DownloadAnswer() {
  PObject answer = test::Alive(60);
  answer["path"] = "/Documents/2023/Letters/To the bank about the new account.docx";
  answer["is_dir"] = 0;
  answer["sync_id"] = 123'456;
  answer["max_id"] = 123'456;
  answer["mtime"] = 1'700'000'000;
  return answer;
}

// A server in this process, and what is needed to reach it.
struct Hub {
  Hub()
      : certificates("hub.example", ""), answer(DownloadAnswer()), peer([this](Visitor& visitor) {
          PObject request;
          int command = 0;
          if (!visitor.ReadRequest(command, request) || !visitor.Answer(answer)) return;
          if (request.hasMember("do_ssl") && visitor.channel.ConvertToSSLChannel(true) != 0) return;
          while (visitor.ReadRequest(command, request) && visitor.Answer(answer)) {
          }
        }) {
    Channel::SetCERTPath(certificates.certificate().str());
    Channel::SetPriKeyPath(certificates.key().str());
    Channel::SetVerifyCAPath(certificates.ca());
  }

  Connection NewConnection(bool use_ssl) const {
    ConnectionInfo info;
    info.server_ip = "127.0.0.1";
    info.server_port = peer.port();
    info.server_name = "hub.example";
    info.use_ssl = use_ssl;
    info.version_info.build_number = 3317;
    return {info, nullptr, nullptr};
  }

  test::Certificates certificates;
  const PObject answer;
  ScriptedPeer peer;
};

Hub& TheHub() {
  static Hub hub;
  return hub;
}

void Bare(benchmark::State& state) {
  const bool use_ssl = state.range(0) != 0;
  Channel channel;
  PStream stream;
  PObject connect;
  InitRequest(connect, "connect");
  if (use_ssl) connect["do_ssl"] = true;
  const auto exchange = [&](const PObject& request) {
    PObject answer;
    Require(ProtoWriteHeader(channel, 0, SCMD_EVT_SEND_2) == 0);
    Require(stream.Send(channel, request) == 0);
    Require(stream.Recv(channel, answer) == 0);
  };
  Require(channel.Open("127.0.0.1", TheHub().peer.port()) == 0);
  exchange(connect);
  Require(!use_ssl || channel.ConvertToSSLChannel(false) == 0);
  const PObject request = DownloadRequest();
  for (auto _ : state) exchange(request);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Bare)->ArgName("tls")->Arg(0)->Arg(1)->UseRealTime();

void Client(benchmark::State& state) {
  static std::unique_ptr<Connection> connection;
  if (state.thread_index() == 0) {
    connection = std::make_unique<Connection>(TheHub().NewConnection(state.range(0) != 0));
  }
  PStream stream;
  std::unique_ptr<ProtocolClient> client;
  const PObject request = DownloadRequest();
  for (auto _ : state) {
    if (client == nullptr) client = std::make_unique<ProtocolClient>(&stream, *connection);
    PObject answer;
    Require(client->Request(SCMD_EVT_SEND_2, request, answer) == 0);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Client)->ArgName("tls")->Arg(0)->Arg(1)->Threads(1)->Threads(4)->UseRealTime();

}  // namespace
}  // namespace tolven
