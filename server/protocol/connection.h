// One client's connection: requests and answers in turn, until either side ends it. Whatever a
// client sends ends at worst its own connection.
#pragma once

#include <atomic>
#include <cstdint>

#include "protocol/object.h"
#include "protocol/stream.h"
#include "server/protocol/command.h"
#include "server/protocol/long-work.h"
#include "server/protocol/received-contents.h"
#include "server/protocol/server-channel.h"
#include "server/protocol/service.h"

namespace tolven::server {

class Connection {
 public:
  // Takes the socket over.
  Connection(Service& service, platform::NativeSocket socket);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void Run();

  // For the thread that accepts connections.
  void End() { end_ = 1; }
  bool IsOver() const { return over_; }
  // Ends a connection that has shown no valid session in time.
  void EndWithoutLogin();

 private:
  // For a client that uses the last moment it has.
  static constexpr std::uint32_t kSlackSeconds = 10;

  // What becomes of the connection after a request.
  enum class Next { kGoOn, kStartTls, kEnd };

  bool Serve(const RequestHeader& header);
  Next ServeObject(const RequestHeader& header);
  Next Answer(const PObject& request, const RequestHeader& header, std::uint64_t order);
  Next ServeTestConnection();
  Next ServeUserCheck();
  Next ServeKeepAliveControl();
  Next ServeOldSsl();
  Next ServeSectionSsl();
  Next WriteResult(std::uint8_t command, std::uint8_t result);
  bool StartTls();
  void KeepBrokenUpload(const PObject& request, std::uint64_t order);

  Service& service_;
  ServerChannel channel_;
  ReceivedContents received_;
  PStream stream_;
  std::atomic<int> end_{0};
  LongWork long_work_;
  std::uint32_t idle_seconds_;
  std::uint64_t user_id_ = 0;       // of the last good session; 0: none
  const std::int64_t login_limit_;  // milliseconds of the monotonic clock
  std::atomic<bool> logged_in_{false}, over_{false};
};

}  // namespace tolven::server
