// One file of 256 MiB over loopback, plain and TLS: PStream beside bare loops over the same calls.
// Wanted: 0.9 of bare sendfile, 0.85 of bare SSL_write and SSL_read with the same cipher. A sparse
// 2 GiB file shows that memory does not grow with the file.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <cstdio>
#include <fstream>
#include <thread>

#include "platform/files.h"
#include "platform/sockets.h"
#include "protocol/stream.h"
#include "support/channel-pair.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

using test::ChannelPair;
using test::TempFolder;

constexpr std::uint64_t kSize = 256 << 20;
constexpr std::size_t kBlock = 0x14000;

using platform::NativeFile;
using platform::NativeSocket;
using platform::OpenMode;
using platform::ScopedFile;

void Require(bool held) {
  if (!held) std::abort();
}

NativeFile Open(const ustring& path, OpenMode mode) {
  NativeFile file = platform::kInvalidFile;
  Require(platform::files().Open(path, mode, file).ok());
  return file;
}

ustring MakeFile(const TempFolder& folder, std::uint64_t size, bool sparse) {
  const ustring path = folder / "source";
  const ScopedFile file(Open(path, OpenMode::kTruncate));
  if (sparse) {
    Require(platform::files().Truncate(file.get(), size).ok());
    return path;
  }
  std::string block(1 << 20, '\0');
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 31 + i / 977);
  std::size_t written = 0;
  for (std::uint64_t done = 0; done < size; done += written) {
    Require(platform::files().Write(file.get(), block.data(), block.size(), written).ok());
  }
  return path;
}

// The most memory that the process has held so far, in MiB; 0 where the system does not tell.
double PeakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes / 1024;
  }
  return 0;
}

// A self-signed certificate and its key in one PEM file.
std::string MakeCertificate(const TempFolder& folder) {
  EVP_PKEY* const key = EVP_RSA_gen(2048);
  X509* const certificate = X509_new();
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate), 86400);
  X509_set_pubkey(certificate, key);
  X509_NAME* const name = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>("localhost"), -1, -1, 0);
  X509_set_issuer_name(certificate, name);
  X509_sign(certificate, key, EVP_sha256());
  const std::string path = (folder / "pem").str();
  FILE* const file = std::fopen(path.c_str(), "w");
  PEM_write_X509(file, certificate);
  PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr);
  std::fclose(file);
  X509_free(certificate);
  EVP_PKEY_free(key);
  return path;
}

bool Secure(ChannelPair& pair, const TempFolder& folder) {
  const std::string pem = MakeCertificate(folder);
  Channel::SetCERTPath(pem);
  Channel::SetPriKeyPath(pem);
  int server = -1;
  std::thread accepting([&] { server = pair.b.ConvertToSSLChannel(true); });
  const int client = pair.a.ConvertToSSLChannel(false);
  accepting.join();
  return server == 0 && client == 0;
}

void Stream(benchmark::State& state, bool tls, std::uint64_t size, bool sparse) {
  const TempFolder folder;
  const ustring source = MakeFile(folder, size, sparse);
  ChannelPair pair;
  if (tls && !Secure(pair, folder)) return state.SkipWithError("handshake");
  PObject message, target;
  message["file"]["data"] = PObject::binary_type{0, size, source};
  for (auto _ : state) {
    target["file"]["data"] = PObject::binary_type{0, 0, folder / "target"};
    std::thread sender([&] {
      PStream stream;
      Require(stream.Send(pair.a, message) == 0);
    });
    PStream stream;
    if (stream.Recv(pair.b, target) != 0) state.SkipWithError("recv");
    sender.join();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
  state.counters["max_rss_MiB"] = PeakMemory();
}
void BM_PlainStreamSparse2GiB(benchmark::State& state) {
  Stream(state, false, std::uint64_t{2} << 30, true);
}
void BM_PlainStream(benchmark::State& state) { Stream(state, false, kSize, false); }
void BM_TlsStream(benchmark::State& state) { Stream(state, true, kSize, false); }
// First, while the process is still small.
BENCHMARK(BM_PlainStreamSparse2GiB)->UseRealTime()->Iterations(1);
BENCHMARK(BM_PlainStream)->UseRealTime()->MinTime(2);
BENCHMARK(BM_TlsStream)->UseRealTime()->MinTime(2);

struct TcpPair {
  NativeSocket a = platform::kInvalidSocket, b = platform::kInvalidSocket;

  TcpPair() {
    platform::Sockets& sockets = platform::sockets();
    NativeSocket listener = platform::kInvalidSocket;
    int port = 0;
    std::vector<platform::SocketAddress> address;
    Require(sockets.Create(4, listener).ok() && sockets.BindLoopback(listener, 0).ok() &&
            sockets.Listen(listener, 1).ok() && sockets.LocalPort(listener, port).ok() &&
            sockets.Resolve("127.0.0.1", port, true, address).ok() && sockets.Create(4, a).ok() &&
            sockets.Connect(a, address.front()).ok() && sockets.Accept(listener, b).ok());
    (void)sockets.Close(listener);
  }
  ~TcpPair() {
    (void)platform::sockets().Close(a);
    (void)platform::sockets().Close(b);
  }
};

// Stores what `receive` gives until the file is complete.
template <class Receive>
void Store(const ustring& path, Receive receive) {
  const ScopedFile out(Open(path, OpenMode::kTruncate));
  std::string buffer(kBlock, '\0');
  std::size_t written = 0;
  for (std::uint64_t left = kSize; left > 0; left -= written) {
    const std::size_t got = receive(buffer.data(), buffer.size());
    Require(got > 0 && platform::files().Write(out.get(), buffer.data(), got, written).ok());
  }
}

void BM_BareSendfile(benchmark::State& state) {
  const TempFolder folder;
  const ustring source = MakeFile(folder, kSize, false);
  const TcpPair pair;
  for (auto _ : state) {
    std::thread sender([&] {
      const ScopedFile file(Open(source, OpenMode::kRead));
      std::size_t sent = 0;
      for (std::uint64_t done = 0; done < kSize; done += sent) {
        Require(platform::sockets().SendFile(pair.a, file.get(), done, 524288, sent).ok());
      }
    });
    Store(folder / "target", [&](char* data, std::size_t size) {
      std::size_t got = 0;
      Require(platform::sockets().Receive(pair.b, data, size, got).ok());
      return got;
    });
    sender.join();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(kSize) * state.iterations());
}
BENCHMARK(BM_BareSendfile)->UseRealTime()->MinTime(2);

void BM_BareTls(benchmark::State& state) {
  const TempFolder folder;
  const ustring source = MakeFile(folder, kSize, false);
  const std::string pem = MakeCertificate(folder);
  const TcpPair pair;
  SSL_CTX* const client_context = SSL_CTX_new(TLS_client_method());
  SSL_CTX* const server_context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate_file(server_context, pem.c_str(), SSL_FILETYPE_PEM);
  SSL_CTX_use_PrivateKey_file(server_context, pem.c_str(), SSL_FILETYPE_PEM);
  SSL* const client = SSL_new(client_context);
  SSL* const server = SSL_new(server_context);
  SSL_set_fd(client, static_cast<int>(pair.a));
  SSL_set_fd(server, static_cast<int>(pair.b));
  std::thread accepting([&] { Require(SSL_accept(server) == 1); });
  Require(SSL_connect(client) == 1);
  accepting.join();
  for (auto _ : state) {
    std::thread sender([&] {
      std::string block(kBlock, '\0');
      const ScopedFile file(Open(source, OpenMode::kRead));
      for (std::size_t got = 1; got > 0;) {
        Require(platform::files().Read(file.get(), block.data(), block.size(), got).ok());
        const int size = static_cast<int>(got);
        Require(size == 0 || SSL_write(client, block.data(), size) == size);
      }
    });
    Store(folder / "target", [&](char* data, std::size_t size) {
      return static_cast<std::size_t>(std::max(SSL_read(server, data, static_cast<int>(size)), 0));
    });
    sender.join();
  }
  SSL_free(client);
  SSL_free(server);
  SSL_CTX_free(client_context);
  SSL_CTX_free(server_context);
  state.SetBytesProcessed(static_cast<std::int64_t>(kSize) * state.iterations());
}
BENCHMARK(BM_BareTls)->UseRealTime()->MinTime(2);

}  // namespace
}  // namespace tolven
