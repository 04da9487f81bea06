#include "ctl/embedded-server.h"

#include <vector>

#include "lib/file-op.h"
#include "server/protocol/server.h"

namespace tolven::ctl {
namespace {

constexpr const char* kUser = "me";
constexpr const char* kView = "files";

}  // namespace

bool EmbeddedServer::Open(std::string& error) {
  if (data_ != nullptr) return true;
  auto data = std::make_unique<server::DataFolder>(folder_);
  // Making one where there is one opens it.
  if (data->Make() != 0 || data->Open() != 0) {
    error = "the embedded server's data in " + folder_.str() + " cannot be made or opened";
    return false;
  }
  data_ = std::move(data);
  return true;
}

bool EmbeddedServer::Prepare(std::uint64_t& view_id, std::string& error) {
  if (!Open(error)) return false;
  server::SqliteMetadata& metadata = data_->metadata();
  server::User user;
  user.name = kUser;
  server::View view;
  view.name = kView;
  const int has_user = metadata.FindUser(kUser, user);
  const int has_view = metadata.FindViewByName(kView, view);
  const bool made = (has_user == 1 || (has_user == 0 && metadata.AddUser(user) == 0)) &&
                    (has_view == 1 || (has_view == 0 && metadata.AddView(view) == 0));
  if (!made) error = "the embedded server's data in " + folder_.str() + " cannot be used";
  view_id = view.id;
  return made;
}

bool EmbeddedServer::NewToken(std::string& token, std::string& error) {
  if (Open(error) && data_->metadata().NewSession(kUser, token) == 0) return true;
  if (error.empty()) error = "the embedded server gave no token";
  return false;
}

bool EmbeddedServer::Start(int& port, std::string& error) {
  if (is_running()) return true;
  if (!Open(error)) return false;
  if (!data_->Claim()) {
    error = "the data in " + folder_.str() + " are served by another program already";
    return false;
  }
  int any_port = 0;
  if (TryPort(port) || TryPort(any_port)) {
    if (any_port != 0) port = any_port;
    return true;
  }
  error = "the embedded server cannot listen on 127.0.0.1";
  return false;
}

bool EmbeddedServer::TryPort(int& port) {
  {
    MutexLock lock(mutex_);
    bound_port_ = 0;
    has_ended_ = false;
  }
  stop_ = false;
  thread_ = std::thread([this, port] {
    server::ServeOptions options;
    options.port = port;
    options.data_dir = folder_;
    options.stop = &stop_;
    options.ready = [this](int bound, const std::string&) {
      MutexLock lock(mutex_);
      bound_port_ = bound;
      changed_.NotifyAll();
    };
    (void)server::Serve(options, data_->metadata(), data_->contents());
    MutexLock lock(mutex_);
    has_ended_ = true;
    changed_.NotifyAll();
  });
  int bound = 0;
  {
    MutexLock lock(mutex_);
    while (bound_port_ == 0 && !has_ended_) changed_.Wait(mutex_);
    bound = bound_port_;
  }
  if (bound == 0) Stop();
  port = bound;
  return bound != 0;
}

void EmbeddedServer::Stop() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

}  // namespace tolven::ctl
