// One file of 256 MiB over loopback, plain and TLS: PStream beside bare loops over the same calls.
// Wanted: 0.9 of bare sendfile, 0.85 of bare SSL_write and SSL_read with the same cipher. A sparse
// 2 GiB file shows that memory does not grow with the file.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "protocol/stream.h"
#include "support/channel-pair.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

using test::ChannelPair;
using test::TempFolder;

constexpr std::uint64_t kSize = 256 << 20;
constexpr std::size_t kBlock = 0x14000;

std::string MakeFile(const TempFolder& folder, std::uint64_t size, bool sparse) {
  const std::string path = (folder / "source").str();
  const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
  if (sparse) {
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) std::perror("ftruncate");
  } else {
    std::string block(1 << 20, '\0');
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 31 + i / 977);
    for (std::uint64_t done = 0; done < size; done += block.size()) {
      if (write(fd, block.data(), block.size()) < 0) std::perror("write");
    }
  }
  close(fd);
  return path;
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
  const std::string source = MakeFile(folder, size, sparse);
  ChannelPair pair;
  if (tls && !Secure(pair, folder)) return state.SkipWithError("handshake");
  PObject message, target;
  message["file"]["data"] = PObject::binary_type{0, size, ustring(source)};
  for (auto _ : state) {
    target["file"]["data"] = PObject::binary_type{0, 0, folder / "target"};
    std::thread sender([&] {
      PStream stream;
      if (stream.Send(pair.a, message) != 0) std::abort();
    });
    PStream stream;
    if (stream.Recv(pair.b, target) != 0) state.SkipWithError("recv");
    sender.join();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["max_rss_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024;
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

void WriteOut(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, data, size);
    if (written <= 0) std::abort();
    data += written;
    size -= static_cast<std::size_t>(written);
  }
}

struct TcpPair {
  int a = -1, b = -1;

  TcpPair() {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0) std::abort();
    if (listen(listener, 1) != 0) std::abort();
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    a = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(a, reinterpret_cast<sockaddr*>(&address), size) != 0) std::abort();
    b = accept(listener, nullptr, nullptr);
    close(listener);
  }
  ~TcpPair() {
    close(a);
    close(b);
  }
};

void BM_BareSendfile(benchmark::State& state) {
  const TempFolder folder;
  const std::string source = MakeFile(folder, kSize, false);
  const TcpPair pair;
  std::string buffer(kBlock, '\0');
  for (auto _ : state) {
    std::thread sender([&] {
      const int fd = open(source.c_str(), O_RDONLY);
      off_t offset = 0;
      while (offset < static_cast<off_t>(kSize)) {
        if (sendfile(pair.a, fd, &offset, 524288) <= 0) std::abort();
      }
      close(fd);
    });
    const int out = open((folder / "target").c_str_utf8(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    for (std::uint64_t left = kSize; left > 0;) {
      const ssize_t got = recv(pair.b, buffer.data(), buffer.size(), 0);
      if (got <= 0) std::abort();
      WriteOut(out, buffer.data(), static_cast<std::size_t>(got));
      left -= static_cast<std::uint64_t>(got);
    }
    close(out);
    sender.join();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(kSize) * state.iterations());
}
BENCHMARK(BM_BareSendfile)->UseRealTime()->MinTime(2);

void BM_BareTls(benchmark::State& state) {
  const TempFolder folder;
  const std::string source = MakeFile(folder, kSize, false);
  const std::string pem = MakeCertificate(folder);
  const TcpPair pair;
  SSL_CTX* const client_context = SSL_CTX_new(TLS_client_method());
  SSL_CTX* const server_context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate_file(server_context, pem.c_str(), SSL_FILETYPE_PEM);
  SSL_CTX_use_PrivateKey_file(server_context, pem.c_str(), SSL_FILETYPE_PEM);
  SSL* const client = SSL_new(client_context);
  SSL* const server = SSL_new(server_context);
  SSL_set_fd(client, pair.a);
  SSL_set_fd(server, pair.b);
  std::thread accepting([&] {
    if (SSL_accept(server) != 1) std::abort();
  });
  if (SSL_connect(client) != 1) std::abort();
  accepting.join();
  std::string buffer(kBlock, '\0');
  for (auto _ : state) {
    std::thread sender([&] {
      std::string block(kBlock, '\0');
      const int fd = open(source.c_str(), O_RDONLY);
      ssize_t got = 0;
      while ((got = read(fd, block.data(), block.size())) > 0) {
        if (SSL_write(client, block.data(), static_cast<int>(got)) != got) std::abort();
      }
      close(fd);
    });
    const int out = open((folder / "target").c_str_utf8(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    for (std::uint64_t left = kSize; left > 0;) {
      const int got = SSL_read(server, buffer.data(), static_cast<int>(buffer.size()));
      if (got <= 0) std::abort();
      WriteOut(out, buffer.data(), static_cast<std::size_t>(got));
      left -= static_cast<std::uint64_t>(got);
    }
    close(out);
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
