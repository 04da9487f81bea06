// The commands "run" and "up".
#include <iostream>
#include <memory>
#include <thread>

#include "ctl/commands.h"
#include "ctl/console.h"
#include "ctl/home-claim.h"
#include "ctl/hub.h"
#include "ctl/live-view.h"
#include "ctl/supervisor.h"
#include "lib/log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/mutex.h"
#include "platform/process.h"

namespace tolven::ctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kRedraw{250};
constexpr int kKeptLogs = 10;
// A command that changes the configuration has the claim for a moment.
constexpr int kClaimTries = 20;

// The daemon lies beside tolvenctl when both are installed, and in the build tree otherwise.
ustring FindDaemon(const std::string& given) {
  if (!given.empty()) return ustring(given);
  ustring self;
  if (!platform::process().ExecutablePath(self).ok()) return {};
  const ustring folder = self.substr(0, self.find_last_of('/'));
  const ustring above = folder.substr(0, folder.find_last_of('/'));
  const ustring suffix = self.size() > 4 && self.substr(self.size() - 4) == ".exe" ? ".exe" : "";
  for (const ustring& place : {folder, above + "/src/client/core"}) {
    ustring candidate = place + "/tolven-daemon" + suffix;
    platform::NodeInfo info;
    if (platform::files().Stat(candidate, info).ok()) return candidate;
  }
  return {};
}

bool TakeClaim(HomeClaim& claim, const Home& home) {
  for (int i = 0; i < kClaimTries; ++i) {
    if (claim.Take(home)) return true;
    platform::clock().Sleep(milliseconds(50));
  }
  return false;
}

// Adds what "up" was told to sync, unless it is there already. Without a folder, one is added only
// when there is none.
bool AddFolder(Supervisor& supervisor, const AddOptions& options, std::string& error) {
  PObject command, answer;
  const bool is_told = !options.folder.empty() || !options.server.empty();
  if (!is_told && !supervisor.monitor().Snapshot()["sessions"].asArray().empty()) return true;
  if (!MakeAddCommand(options, command, error)) return false;
  command["or_existing"] = true;
  supervisor.Execute(command, answer);
  if (answer.hasMember("note")) std::cout << answer["note"].asString().str() << std::endl;
  if (answer.hasMember("error")) error = answer["error"].asString().str();
  return error.empty();
}

// Shows what happens until `done`.
void Watch(const Supervisor& supervisor, bool as_picture, const std::atomic<bool>& done) {
  LiveView view(as_picture);
  while (!done) {
    view.Show(supervisor.monitor().Snapshot());
    platform::clock().Sleep(kRedraw);
  }
  view.Show(supervisor.monitor().Snapshot());
}

// Whom a signal stops; nobody once they are gone.
class StopTarget {
 public:
  StopTarget(Hub& hub, Supervisor& supervisor) : hub_(&hub), supervisor_(&supervisor) {}

  void Stop() {
    MutexLock lock(mutex_);
    if (hub_ == nullptr) return;
    supervisor_->Abort();
    hub_->Stop();
  }
  void Clear() {
    MutexLock lock(mutex_);
    hub_ = nullptr;
  }

 private:
  Mutex mutex_;
  Hub* hub_ GUARDED_BY(mutex_);
  Supervisor* const supervisor_;
};

// From a linked daemon to its end.
int Serve(Hub& hub, Supervisor& supervisor, const RunOptions& options) {
  supervisor.Attach(
      [&hub](const PObject& request, PObject& reply) { return hub.CallDaemon(request, reply); },
      hub.notifications());
  std::atomic<bool> done{false};
  std::thread viewer;
  const bool as_picture = options.is_up && platform::process().IsTerminal(1);
  if (!options.quiet) {
    viewer = std::thread([&] { Watch(supervisor, as_picture, done); });
  }
  std::string error;
  const bool in_order = hub.Serve(error);
  done = true;
  if (viewer.joinable()) viewer.join();
  std::cout << "stopping" << std::endl;
  supervisor.Detach();
  hub.End();
  supervisor.StopServices();
  if (!in_order) return Fail(error);
  std::cout << "stopped" << std::endl;
  return 0;
}

}  // namespace

int RunHub(const RunOptions& options) {
  std::string error;
  const Home home = FindHome(error);
  if (!error.empty()) return Fail(error);
  HomeClaim claim;
  if (!TakeClaim(claim, home)) return Fail("already running; see \"tolvenctl status\"");
  const ustring daemon = FindDaemon(options.daemon);
  if (daemon.empty()) return Fail("cannot find tolven-daemon; name it with --daemon");
  Logger::Initialize(Logger::FILE_LOGGER, home.own_log, home.log_level, kKeptLogs);

  Supervisor supervisor(home);
  if (!supervisor.Load(error) || (options.is_up && !AddFolder(supervisor, options.add, error)) ||
      !supervisor.StartServices(error)) {
    return Fail(error);
  }
  Hub hub(home, daemon, [&supervisor](const PObject& command, PObject& answer) {
    return supervisor.Execute(command, answer);
  });
  const auto target = std::make_shared<StopTarget>(hub, supervisor);
  const platform::Status handled = platform::process().OnTermination([target] { target->Stop(); });
  int status = 1;
  if (!handled.ok()) {
    Fail("cannot handle signals: " + platform::StatusText(handled));
  } else if (!hub.Start(error)) {
    Fail(error);
  } else {
    std::cout << "Tolven Hub runs; its data is in " << home.root << ". Ctrl-C stops it."
              << std::endl;
    status = Serve(hub, supervisor, options);
  }
  target->Clear();
  return status;
}

}  // namespace tolven::ctl
