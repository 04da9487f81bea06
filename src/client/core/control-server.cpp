#include "client/core/control-server.h"

#include <chrono>
#include <utility>

#include "client/core/app.h"
#include "client/core/control-channel.h"
#include "client/core/settings.h"
#include "lib/ipc-sender.h"
#include "lib/log.h"
#include "platform/clock.h"
#include "platform/identity.h"
#include "protocol/stream.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "client_debug";
constexpr std::uint32_t kClientSeconds = 10;
constexpr PStream::Limits kRequestLimits{
    .nodes = 100'000, .bytes = std::uint64_t{1} << 20, .allow_binary = false};

int TellUi(int ui_port, int daemon_port) {
  IPCSender sender;
  // Having got the port of the UI itself, the daemon would only reach its own listener.
  if (daemon_port == ui_port || sender.connect(ui_port) < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] test(%d): Failed to connect to port : %d\n",
                   __LINE__, ui_port);
    return -1;
  }
  PObject msg;
  msg["daemon_port"] = daemon_port;
  if (sender.send(msg) == 0) {
    sender.finish();
    return 0;
  }
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] test(%d): failed to send daemon port back to ui\n", __LINE__);
  return -1;
}

void LogMessage(const xchar* format, int line, const PObject& msg) {
  if (!Logger::IsEnabled(Logger::L_DEBUG, kCategory)) return;
  Logger::LogMsg(Logger::L_DEBUG, kCategory, format, line, msg.toString());
}

}  // namespace

int ControlServer::Open() {
  const Settings& settings = Settings::getInstance();
  const ustring path = settings.getSocketPath();
  return path.empty() ? OpenPort(settings.getUIPort()) : OpenPath(path);
}

int ControlServer::OpenPath(const ustring& path) {
  if (listener_.prepare(path.str()) < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] test(%d): failed to listen on port domain socket '%s'\n", __LINE__,
                   path);
    return -1;
  }
  Logger::LogMsg(Logger::L_NOTICE, kCategory,
                 L"[NOTE] test(%d): daemon is listening on socket %s\n", __LINE__, path);
  return 0;
}

int ControlServer::OpenPort(int ui_port) {
  const int port = listener_.prepare(ui_port);
  if (port >= 0) {
    Logger::LogMsg(Logger::L_INFO, kCategory,
                   L"[INFO] test(%d): daemon is listening on local port %d\n", __LINE__, port);
    if (TellUi(ui_port, port) == 0) return 0;
  }
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] test(%d): failed to listen on port local_port.\n", __LINE__);
  return -1;
}

void ControlServer::Serve() {
  for (bool running = true; running;) {
    if (!listener_.isReady()) continue;
    const IPCListener::socket_type socket = listener_.accept();
    if (socket == platform::kInvalidSocket) {
      Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] test(%d): accept fail.\n", __LINE__);
      // A process out of descriptors finds the connection still waiting.
      platform::clock().Sleep(std::chrono::milliseconds(100));
    } else {
      running = ServeOne(socket);
    }
  }
}

bool ControlServer::ServeOne(IPCListener::socket_type socket) {
  ControlChannel channel;
  channel.SetDeadline(kClientSeconds);
  // The system can tell the owner only while the peer has its end open.
  if (platform::identity().OwnerOfPeer(socket) != platform::PeerOwner::kAllowed) {
    Logger::LogMsg(
        Logger::L_ERR, kCategory,
        L"[ERROR] test(%d): control connection of an unknown or another user is refused.\n",
        __LINE__);
    IPCListener::CloseSocket(socket);
    return true;
  }
  if (channel.Open(socket, true) < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] test(%d): open channel fail.\n", __LINE__);
    IPCListener::CloseSocket(socket);
    return true;
  }
  PStream stream;
  stream.SetLimits(kRequestLimits);
  PObject request, reply;
  if (stream.Recv(channel, request) < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] test(%d): Failed to recieve message from channel.\n", __LINE__);
    return true;
  }
  LogMessage(L"[DEBUG] test(%d): recieve msg >>> %s\n", __LINE__, request);
  app_.send_message(request, reply);
  if (std::as_const(request)["action"].asStringView() == "stop") return false;

  LogMessage(L"[DEBUG] test(%d): send msg <<< %s\n", __LINE__, reply);
  channel.SetDeadline(kClientSeconds);
  if (stream.Send(channel, reply) < 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] test(%d): Failed to send message from channel.\n", __LINE__);
  }
  return true;
}

}  // namespace tolven
