#include "ctl/hub.h"

#include <charconv>
#include <chrono>
#include <utility>

#include "lib/channel.h"
#include "lib/ipc-sender.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/identity.h"
#include "protocol/stream.h"

namespace tolven::ctl {
namespace {

using std::chrono::milliseconds;

// Where the search for free ports begins. The daemon takes the next one behind the hub's.
constexpr int kFirstPort = 47100;
constexpr std::int64_t kDaemonStartMs = 30'000;
constexpr int kDaemonStopMs = 60'000;
constexpr std::uint32_t kPeerSeconds = 10;
constexpr std::uint64_t kMaxWaitMs = 250;
constexpr PStream::Limits kLimits{100'000, 1 << 20, false};

// Reads one tree from a local peer of the same user.
bool ReceiveFrom(Channel& channel, platform::NativeSocket socket, PObject& tree) {
  if (platform::identity().OwnerOfPeer(socket) != platform::PeerOwner::kAllowed ||
      channel.Open(socket, true) != 0) {
    (void)platform::sockets().Close(socket);
    return false;
  }
  channel.SetTimeout(kPeerSeconds);
  PStream stream;
  stream.SetLimits(kLimits);
  return stream.Recv(channel, tree) == PStream::ERR_OK;
}

// The number that a small file holds; 0 when there is none.
std::int64_t ReadNumber(const ustring& path) {
  std::string text;
  std::int64_t number = 0;
  if (ReadSmallFile(path, text)) {
    std::from_chars(text.data(), text.data() + text.size(), number);
  }
  return number;
}

bool AnswersAsDaemon(int port) {
  PObject request, reply;
  request["action"] = "get_status";
  IPCSender sender;
  return sender.connect(port) == 0 && sender.send(request, true, reply) == 0 &&
         reply.hasMember("ack");
}

}  // namespace

Hub::Hub(Home home, ustring daemon, Handler handler)
    : home_(std::move(home)), daemon_(std::move(daemon)), handler_(std::move(handler)) {
  ui_listener_.setTimeout(milliseconds(200));
  command_listener_.setTimeout(milliseconds(200));
}

Hub::~Hub() {
  End();
  listening_ = false;
  if (notification_thread_.joinable()) notification_thread_.join();
}

void Hub::End() {
  stopping_ = true;
  notifications_.Close();
  if (command_thread_.joinable()) command_thread_.join();
  (void)platform::files().RemoveFile(home_.hub_file);
  StopDaemon();
}

bool Hub::Start(std::string& error) {
  if (!StopOrphan(error)) return false;
  const int ui_port = ui_listener_.prepare(kFirstPort);
  const int command_port = ui_port < 0 ? -1 : command_listener_.prepare(ui_port + 1);
  if (command_port < 0) {
    error = "no free port on 127.0.0.1";
    return false;
  }
  WriteDaemonFiles(home_, ui_port, home_.trusted, error);
  if (!error.empty()) return false;
  notification_thread_ = std::thread(&Hub::ServeNotifications, this);
  if (!StartDaemon(error)) return false;

  PObject link, reply;
  link["action"] = "link";
  if (!CallDaemon(link, reply)) {
    error = "the daemon does not answer; see " + home_.daemon_log.str();
    return false;
  }
  if (reply.hasMember("error")) {
    error = "the daemon cannot be linked: " + reply["error"].asString().str();
    return false;
  }
  if (!ReplaceFile(home_.hub_file, std::to_string(command_port) + "\n", error)) return false;
  command_thread_ = std::thread(&Hub::ServeCommands, this);
  return true;
}

// Two daemons must not work on the same databases. One that lost its tolvenctl still runs under the
// id in its pid file and listens on the port that it had told.
bool Hub::StopOrphan(std::string& error) {
  const std::int64_t pid = ReadNumber(home_.pid_file);
  const auto port = static_cast<int>(ReadNumber(home_.daemon_port));
  if (port <= 0 || !platform::process().IsRunning(pid) || !AnswersAsDaemon(port)) return true;
  PObject stop;
  stop["action"] = "stop";
  IPCSender sender;
  if (sender.connect(port) == 0) (void)sender.send(stop);
  const std::int64_t deadline = platform::clock().MonotonicMilliseconds() + kDaemonStopMs;
  while (platform::process().IsRunning(pid)) {
    if (platform::clock().MonotonicMilliseconds() > deadline) {
      error =
          "the daemon of an earlier run does not stop; its process id is " + std::to_string(pid);
      return false;
    }
    platform::clock().Sleep(milliseconds(50));
  }
  return true;
}

bool Hub::StartDaemon(std::string& error) {
  const platform::Status started =
      platform::process().Spawn({daemon_, home_.daemon_config}, home_.daemon_output, child_);
  if (!started.ok()) {
    error = "cannot start " + daemon_.str() + ": " + platform::StatusText(started);
    return false;
  }
  child_running_ = true;
  const std::int64_t deadline = platform::clock().MonotonicMilliseconds() + kDaemonStartMs;
  while (daemon_port_ == 0 && DaemonRuns()) {
    if (platform::clock().MonotonicMilliseconds() > deadline) break;
    platform::clock().Sleep(milliseconds(20));
  }
  if (daemon_port_ != 0) {
    return ReplaceFile(home_.daemon_port, std::to_string(daemon_port_), error);
  }
  error = "the daemon did not start; see " + home_.daemon_output.str();
  return false;
}

bool Hub::DaemonRuns() {
  if (child_running_ && platform::process().WaitForExit(child_, 0, exit_status_)) {
    child_running_ = false;
  }
  return child_running_;
}

bool Hub::Serve(std::string& error) {
  bool alone = true;
  while (!stopping_ && alone) {
    alone = DaemonRuns();
    platform::clock().Sleep(milliseconds(50));
  }
  if (alone) return true;
  error = "the daemon ended by itself with status " + std::to_string(exit_status_) + "; see " +
          home_.daemon_log.str();
  return false;
}

void Hub::StopDaemon() {
  if (!DaemonRuns()) return;
  PObject stop, reply;
  stop["action"] = "stop";
  (void)CallDaemon(stop, reply);  // the daemon does not answer this one
  // One that never told its port cannot be asked.
  const int wait_ms = daemon_port_ == 0 ? 0 : kDaemonStopMs;
  if (!platform::process().WaitForExit(child_, wait_ms, exit_status_)) {
    // It keeps nothing in memory that a restart would not find again.
    (void)platform::process().Kill(child_);
    (void)platform::process().WaitForExit(child_, kDaemonStopMs, exit_status_);
  }
  child_running_ = false;
  (void)platform::files().RemoveFile(home_.daemon_port);
}

bool Hub::CallDaemon(const PObject& request, PObject& reply) {
  MutexLock lock(call_mutex_);
  IPCSender sender;
  return daemon_port_ != 0 && sender.connect(daemon_port_) == 0 &&
         sender.send(request, true, reply) == 0;
}

void Hub::ServeNotifications() {
  while (listening_) {
    if (!ui_listener_.isReady()) continue;
    const platform::NativeSocket socket = ui_listener_.accept();
    if (socket != platform::kInvalidSocket) ReceiveNotification(socket);
  }
}

void Hub::ReceiveNotification(platform::NativeSocket socket) {
  Channel channel(0x14000);
  PObject message;
  if (!ReceiveFrom(channel, socket, message)) return;
  if (message.hasMember("daemon_port")) {
    daemon_port_ = message["daemon_port"].asInt32();
  } else {
    notifications_.Add(message);
  }
}

void Hub::ServeCommands() {
  while (!stopping_) {
    if (!command_listener_.isReady()) continue;
    const platform::NativeSocket socket = command_listener_.accept();
    std::erase_if(commands_, [](const std::future<void>& command) {
      return command.wait_for(milliseconds(0)) == std::future_status::ready;
    });
    if (socket == platform::kInvalidSocket) continue;
    // Some of them wait, for a server or for workers; the others need not.
    commands_.push_back(std::async(std::launch::async, [this, socket] { AnswerCommand(socket); }));
  }
  commands_.clear();  // waits for each
}

void Hub::AnswerCommand(platform::NativeSocket socket) {
  Channel channel(0x14000);
  PObject command, answer;
  if (!ReceiveFrom(channel, socket, command)) return;
  Answer(command, answer);
  answer["home"] = home_.root;
  PStream stream;
  (void)stream.Send(channel, answer);  // a peer that has gone misses its answer
}

void Hub::Answer(const PObject& command, PObject& answer) {
  const ustring name = command["command"].asString();
  if (command["home"].asString() != home_.root) {
    answer["error"] = "this tolvenctl works on another folder";
  } else if (name == "ping") {
    answer["pid"] = platform::process().Id();
  } else if (name == "stop") {
    answer["reply"].asMap();
    stopping_ = true;
  } else if (name == "notifications") {
    const std::uint64_t wait = std::min(command["wait_ms"].asUInt64(), kMaxWaitMs);
    std::uint64_t next = 0;
    answer["list"] = notifications_.After(command["since"].asUInt64(), milliseconds(wait), next);
    answer["next"] = next;
  } else if (name == "verb" && command["request"]["action"].asString() == "stop") {
    answer["error"] = "the daemon is stopped with \"tolvenctl stop\"";
  } else if (name == "verb") {
    PObject reply;
    if (CallDaemon(command["request"], reply)) {
      answer["reply"] = reply;
    } else {
      answer["error"] = "the daemon does not answer";
    }
  } else if (!handler_(command, answer)) {
    answer["error"] = "unknown command";
  }
}

}  // namespace tolven::ctl
