#include "server/protocol/server.h"

#include <cstdio>

#include "lib/channel.h"
#include "lib/log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/process.h"
#include "server/protocol/certificate.h"
#include "server/protocol/connection-table.h"
#include "server/protocol/listener.h"
#include "server/protocol/service.h"
#include "server/protocol/small-content-mover.h"

namespace tolven::server {

namespace {

constexpr const char* kCategory = "server";
constexpr int kLookAroundMs = 200;  // how soon a stop is seen
constexpr std::int64_t kForgetEveryMs = 3600 * 1000;
constexpr unsigned kDeltasAtOnce = 2;
constexpr std::size_t kServerIdLength = 16;

std::atomic<bool> g_terminated{false};

const std::atomic<bool>* StopFlag(const ServeOptions& options) {
  if (options.stop != nullptr) return options.stop;
  const platform::Status status = platform::process().OnTermination([] { g_terminated = true; });
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] server(%d): signals will not end it cleanly: %s\n", __LINE__,
                   platform::StatusText(status));
  }
  return &g_terminated;
}

// The fingerprint of the certificate in use; empty when there is none.
std::string PrepareTls(const ServeOptions& options) {
  ustring certificate = options.certificate_path, key = options.key_path;
  if (certificate.empty() && key.empty()) {
    certificate = options.data_dir + "/server.pem";
    key = options.data_dir + "/server.key";
    if (EnsureCertificate(certificate, key, options.listen_address) < 0) return {};
  }
  Channel::SetCERTPath(certificate.str());
  Channel::SetPriKeyPath(key.str());
  Channel::SSL* ssl = nullptr;
  Channel::SSL_CTX* context = nullptr;
  // A key that does not go with the certificate is found here and not by the first client.
  const bool usable = Channel().InitSSL(ssl, context, true, true) == 0;
  Channel::DeinitSSL(ssl, context, true);
  std::string fingerprint = usable ? Fingerprint(certificate) : std::string();
  if (fingerprint.empty()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] server(%d): certificate '%s' and key '%s' cannot be used\n", __LINE__,
                   certificate, key);
  }
  return fingerprint;
}

std::string ServerId(const std::string& fingerprint) {
  std::string id;
  for (const char c : fingerprint) {
    if (c != ':' && id.size() < kServerIdLength) id += c;
  }
  return id;
}

void Announce(const ServeOptions& options, int port, const std::string& fingerprint) {
  if (options.ready) {
    options.ready(port, fingerprint);
    return;
  }
  std::printf("listening on %s:%d\ncertificate SHA-256 %s\n", options.listen_address.c_str(), port,
              fingerprint.c_str());
  std::fflush(stdout);
}

void AcceptUntil(const std::atomic<bool>& stop, Listener& listener, Service& service) {
  ConnectionTable connections(service);
  std::int64_t forgotten = platform::clock().MonotonicMilliseconds();
  while (!stop) {
    const platform::NativeSocket socket = listener.Accept(kLookAroundMs);
    if (socket != platform::kInvalidSocket) connections.Add(socket);
    connections.Sweep();
    const std::int64_t now = platform::clock().MonotonicMilliseconds();
    if (now - forgotten < kForgetEveryMs) continue;
    service.transfers.ForgetOld();
    forgotten = now;
  }
}

}  // namespace

int Serve(const ServeOptions& options, Metadata& metadata, ContentStore& contents) {
  if (!platform::process().StartSockets().ok()) return -1;
  const std::atomic<bool>* const stop = StopFlag(options);
  const std::string fingerprint = PrepareTls(options);
  if (fingerprint.empty()) return -1;
  Service service(options, metadata, contents, ServerId(fingerprint), kDeltasAtOnce);
  Listener listener;
  if (service.transfers.Open() < 0 || listener.Open(options.listen_address, options.port) < 0) {
    return -1;
  }
  const SmallContentMover mover(metadata, contents, service.transfers.IncomingFolder());
  Announce(options, listener.port(), fingerprint);
  AcceptUntil(*stop, listener, service);
  return 0;
}

}  // namespace tolven::server
