// The one way in which handlers speak with the server: a request tree goes out, its answer comes
// back, over a channel of the connection's pool that is opened when needed. Objects by which the
// server only says that it still works are read over.
//
// One object for each thread. The abort flags are the caller's and may be set by others; the stream
// is shared with those who watch its progress. Messages go to "proto_client".
#pragma once

#include <atomic>
#include <cstdint>

#include "client/core/connection.h"
#include "lib/channel.h"
#include "protocol/object.h"
#include "protocol/stream.h"
#include "ustring/ustring.h"

namespace tolven {

class ProtocolClient : public ErrorCodes {
 public:
  // `stream` outlives the object.
  ProtocolClient(PStream* stream, const Connection& connection);

  // 0, or a code of ErrorCodes; ERR_INT whenever an abort flag is set. An answer that is a refusal
  // is an answer. `response` is filled in place, so the caller may say before where contents go;
  // after a failure it may hold a part.
  int Request(std::uint8_t cmd, const PObject& request, PObject& response);

  void SetAbortFlag(std::atomic<int>* flag);  // both of the following
  void SetSendAbortFlag(std::atomic<int>* flag) { send_abort_flag = flag; }
  void SetRecvAbortFlag(std::atomic<int>* flag) { recv_abort_flag = flag; }
  // Folder for received contents whose place was not said.
  void SetReceiveLocation(const ustring& path) { default_receive_location = path; }

 private:
  int Exchange(Connection::ChannelStat& stat, std::uint8_t cmd, const PObject& request,
               PObject& response);
  int ReopenChannel(Channel& ch);
  int Connect(Channel& ch);
  int ConvertToSsl(Channel& ch);
  int Send(Channel& ch, std::uint8_t cmd, const PObject& request, PObject& response);
  int SendAndReceive(Channel& ch, std::uint8_t cmd, const PObject& request, PObject& response);
  void DropStrayFiles(const PObject& request, const PObject& response) const;
  int ConvertStreamErrorToErrorCode(int code) const;
  bool IsAborted() const;

  PStream* const stream;
  Connection connection;
  std::atomic<int>* send_abort_flag = nullptr;
  std::atomic<int>* recv_abort_flag = nullptr;
  ustring default_receive_location;
};

// The code of ErrorCodes for one of PStream, which uses the same names for other numbers.
int StreamErrorToErrorCode(int code);

}  // namespace tolven
