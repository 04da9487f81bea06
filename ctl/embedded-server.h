// The server that tolvenctl runs itself when nobody names another: one user, one view, on
// 127.0.0.1, in threads of this process, so that it ends with it. Its log lines go to this
// process's log.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "platform/mutex.h"
#include "server/admin/data-folder.h"
#include "ustring/ustring.h"

namespace tolven::ctl {

class EmbeddedServer {
 public:
  explicit EmbeddedServer(ustring folder) : folder_(std::move(folder)) {}
  ~EmbeddedServer() { Stop(); }
  EmbeddedServer(const EmbeddedServer&) = delete;
  EmbeddedServer& operator=(const EmbeddedServer&) = delete;

  // All of these: false with one line in `error`.
  // Makes the server's data with its user and view when they are missing, and gives the view's id.
  bool Prepare(std::uint64_t& view_id, std::string& error);
  // A further login token of the user.
  bool NewToken(std::string& token, std::string& error);
  // Serves on `port`, or on a free one when that is taken, which goes to `port` then. REQUIRES:
  // Prepare().
  bool Start(int& port, std::string& error);

  // Ends every connection. Nothing when it does not serve.
  void Stop();
  bool is_running() const { return thread_.joinable(); }

  // The certificate that it shows, made by the first Start().
  ustring certificate() const { return folder_ + "/server.pem"; }

 private:
  bool Open(std::string& error);
  bool TryPort(int& port);

  const ustring folder_;
  std::unique_ptr<server::DataFolder> data_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  Mutex mutex_;
  CondVar changed_;
  int bound_port_ GUARDED_BY(mutex_) = 0;
  bool has_ended_ GUARDED_BY(mutex_) = false;
};

}  // namespace tolven::ctl
