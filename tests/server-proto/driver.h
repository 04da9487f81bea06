// A server on a free port in a thread of its own, and a raw client that speaks to it by the bytes.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "lib/channel.h"
#include "protocol/object.h"
#include "protocol/stream.h"
#include "server/protocol/server.h"
#include "support/temp-folder.h"

namespace tolven::test {

class RawClient {
 public:
  explicit RawClient(int port) { EXPECT_EQ(channel.Open("127.0.0.1", port), 0); }
  RawClient(int port, const PObject& connect) : RawClient(port) {
    EXPECT_FALSE(Request(14, connect).hasMember("error"));
  }

  void Header(std::uint8_t command, std::uint32_t magic = 0x25521814, std::uint8_t version = 70) {
    channel.WriteInt32(magic);
    channel.WriteByte(version);
    channel.WriteByte(command);
    channel.WriteInt16(0);
  }

  // The answer behind any number of keep-alive objects; null when the connection ended.
  PObject Request(std::uint8_t command, const PObject& request) {
    Header(command);
    EXPECT_EQ(stream.Send(channel, request), PStream::ERR_OK);
    for (;;) {
      PObject answer;
      stream.SetDefaultRecvLocation(ustring(received.path()));
      if (stream.Recv(channel, answer) != PStream::ERR_OK) return {};
      if (answer["type"].asString() != "keep_alive") return answer;
      ++keep_alives;
    }
  }

  // Whether the server has ended the connection: nothing more comes.
  bool IsEnded() {
    std::uint8_t byte = 0;
    channel.SetTimeout(10);
    return channel.FlushWrite(0) < 0 || channel.ReadByte(byte) < 0;
  }

  bool StartTls() {
    channel.SetAllowUntrust(true);
    return channel.ConvertToSSLChannel(false) == 0;
  }

  Channel channel;
  PStream stream;
  TempFolder received;
  int keep_alives = 0;
};

inline PObject NewRequest(const char* action, const std::string& session) {
  PObject request;
  request["_action"] = action;
  request["_agent"]["platform"] = "Windows";
  request["session"] = session;
  return request;
}

inline std::uint32_t CodeOf(const PObject& answer) {
  return answer.hasMember("error") ? answer["error"]["code"].asUInt32() : 0;
}

}  // namespace tolven::test
