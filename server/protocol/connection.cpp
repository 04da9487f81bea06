#include "server/protocol/connection.h"

#include <algorithm>
#include <exception>
#include <vector>

#include "lib/log.h"
#include "lib/proto-constants.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace tolven::server {

namespace {

constexpr const char* kCategory = "server";

// Older and newer clients speak something else behind the same header.
constexpr std::uint8_t kOldestVersion = 70, kNewestVersion = 79;

// A request is a handful of values; its longest texts are access lists.
constexpr std::uint64_t kMaxNodes = 1000;
constexpr std::uint64_t kMaxBytes = 1024 * 1024;

// Whatever files a tree of an ended request names: they were received into the server's own folder.
void RemoveReceived(const PObject& root, const ustring& folder) {
  std::vector<const PObject*> pending{&root};
  while (!pending.empty()) {
    const PObject& value = *pending.back();
    pending.pop_back();
    if (value.isBinary()) {
      const ustring& path = value.asBinary().path;
      if (path.view().starts_with(folder.view())) (void)platform::files().RemoveFile(path);
    } else if (value.isMap()) {
      for (const auto& [key, member] : value.asMap()) pending.push_back(&member);
    } else if (value.isArray()) {
      for (const PObject& element : value.asArray()) pending.push_back(&element);
    }
  }
}

PObject RefusalOf(std::uint32_t code) {
  PObject answer;
  answer["error"]["code"] = code;
  answer["error"]["reason"] = RefusalReason(code);
  return answer;
}

}  // namespace

Connection::Connection(Service& service, platform::NativeSocket socket)
    : service_(service),
      long_work_(channel_, stream_, end_),
      idle_seconds_(service.options.alive_seconds + kSlackSeconds),
      login_limit_(platform::clock().MonotonicMilliseconds() +
                   std::chrono::duration_cast<std::chrono::milliseconds>(service.options.login_time)
                       .count()) {
  channel_.SetFlag(&end_);
  channel_.SetTimeout(service.options.io_timeout_seconds);
  if (channel_.Open(socket, true) < 0) (void)platform::sockets().Close(socket);
  stream_.SetDefaultRecvLocation(service.transfers.IncomingFolder());
  stream_.SetReceiveObserver(&received_);
  long_work_.SetInterval(service.options.keep_alive_interval);
  long_work_.SetAlive(service.options.alive_seconds);
}

void Connection::EndWithoutLogin() {
  if (!logged_in_ && platform::clock().MonotonicMilliseconds() > login_limit_) End();
}

void Connection::Run() {
  try {
    RequestHeader header;
    int result = 0;
    while (end_ == 0 && (result = channel_.ReadHeader(idle_seconds_, header)) == 0) {
      channel_.SetTimeout(service_.options.io_timeout_seconds);
      if (!Serve(header)) break;
    }
    if (result == ServerChannel::kWrongMagic) {
      Logger::LogMsg(Logger::L_WARNING, kCategory,
                     L"[WARNING] connection(%d): no request, the connection is closed\n", __LINE__);
    }
  } catch (const std::exception& error) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] connection(%d): ended by '%s'\n", __LINE__,
                   error.what());
  }
  channel_.Close();
  over_ = true;
}

bool Connection::Serve(const RequestHeader& header) {
  Next next = Next::kEnd;
  switch (header.command) {
    case SCMD_TEST_CONN:
      next = ServeTestConnection();
      break;
    case SCMD_USER_CHECK:
      next = ServeUserCheck();
      break;
    case SCMD_KEEP_ALIVE:
      next = ServeKeepAliveControl();
      break;
    case SCMD_REQUEST_SSL:
      next = ServeOldSsl();
      break;
    case SCMD_REQUEST_SSL_2: {
      std::uint8_t first = 0;
      if (channel_.PeekByte(first) < 0) return false;
      next = first == SPROTO_ID_PROTO_VERSION_2 ? ServeSectionSsl() : ServeObject(header);
      break;
    }
    default:
      if (IsObjectCommand(header.command)) next = ServeObject(header);
      break;
  }
  if (next == Next::kStartTls) return StartTls();
  return next == Next::kGoOn;
}

// Nothing goes on in clear when the client wanted it hidden.
bool Connection::StartTls() {
  const int result = channel_.ConvertToSSLChannel(true);
  if (result < 0) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] connection(%d): TLS could not be started (%d)\n", __LINE__, result);
  }
  return result == 0;
}

Connection::Next Connection::ServeObject(const RequestHeader& header) {
  PStream::Limits limits;
  limits.nodes = kMaxNodes;
  limits.bytes = kMaxBytes;
  // Contents come before the session in a request: only who has shown one may send any.
  limits.allow_binary = logged_in_;
  stream_.SetLimits(limits);

  const std::uint64_t order = service_.transfers.NextOrder();
  PObject request;
  // A broken transfer goes on from a file, also with what is small.
  received_.Clear(header.command == SCMD_EVT_RECV_4);
  const int received = stream_.Recv(channel_, request);
  Next next = Next::kEnd;
  if (received == PStream::ERR_OK) {
    next = Answer(request, header, order);
  } else {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] connection(%d): a request broke off (%d)\n", __LINE__, received);
    KeepBrokenUpload(request, order);
  }
  RemoveReceived(request, service_.transfers.IncomingFolder());
  return next;
}

Connection::Next Connection::Answer(const PObject& request, const RequestHeader& header,
                                    std::uint64_t order) {
  Command command(service_, long_work_, received_, request, order);
  std::uint32_t code = SPROTO_ERR_VERSION;
  const bool understood = header.version >= kOldestVersion && header.version <= kNewestVersion;
  if (understood) code = RunCommand(header.command, command);
  if (end_ != 0) return Next::kEnd;
  if (code != SPROTO_ERR_OK) {
    Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] connection(%d): '%s' refused: 0x%x %s\n",
                   __LINE__, request["action"].asString(), code, RefusalReason(code));
    command.answer = RefusalOf(code);
    command.start_tls = false;
  } else if (command.user.id != 0) {
    user_id_ = command.user.id;
    logged_in_ = true;
  }
  command.answer["alive"] = service_.options.alive_seconds;
  const int sent = stream_.Send(channel_, command.answer);
  if (sent != PStream::ERR_OK || !understood) return Next::kEnd;
  return command.start_tls ? Next::kStartTls : Next::kGoOn;
}

// What came of an upload before its connection broke is not sent twice. The token stands before the
// data in a request, the session behind them: the user is the one of the login.
void Connection::KeepBrokenUpload(const PObject& request, std::uint64_t order) {
  const PObject::binary_type& data = request["file"]["data"].asBinary();
  const std::string token = request["resume_token"].asString().str();
  if (user_id_ == 0 || token.empty() || data.empty() || data.length == 0) return;
  auto claim = service_.transfers.Take(token, {user_id_, 0}, 0);
  if (claim) (void)claim->Add(data.path, data.length, order);
}

}  // namespace tolven::server
