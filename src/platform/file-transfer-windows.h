// Parts of files that are under way to sockets by TransmitFile, which the system may hold until the
// peer reads.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "platform/files.h"
#include "platform/mutex.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

// For any thread; one socket is one thread's at a time.
class FileTransfers {
 public:
  // As Sockets::SendFile, for at most 64 KiB. After kWouldBlock the same part must be asked for
  // again, or the socket closed.
  Status Send(SOCKET socket, HANDLE file, std::uint64_t offset, std::size_t size,
              std::size_t& sent);
  // The event of what is under way on the socket; null when nothing is.
  HANDLE Waitable(SOCKET socket);
  // Gives up what is under way on a socket that is about to be closed.
  void Forget(SOCKET socket);

 private:
  // The system writes to it until the part has gone.
  struct Part {
    ScopedHandle event;
    OVERLAPPED request{};
    HANDLE file = nullptr;
    std::uint64_t offset = 0;
  };

  std::unique_ptr<Part> Take(SOCKET socket);
  void Keep(SOCKET socket, std::unique_ptr<Part> part);
  static Status Start(SOCKET socket, Part& part, std::size_t size);

  Mutex mutex_;
  std::map<SOCKET, std::unique_ptr<Part>> parts_ GUARDED_BY(mutex_);
};

}  // namespace tolven::platform
