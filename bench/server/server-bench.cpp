// Durable uploads of 4 KiB over four channels to the real server, beside four threads that write,
// sync and rename files of that size and share the syncs of a journal as the server's changes do.
// Wanted: 0.5 of the bare rate.

#include <benchmark/benchmark.h>

#include <array>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>

#include "client/core/protocol-client.h"
#include "e2e/server-process.h"
#include "lib/proto-common.h"
#include "platform/files.h"
#include "rsapi-cpp/simple-file-reader.h"

namespace tolven {
namespace {

constexpr int kThreads = 4;
constexpr std::size_t kSize = 4096;
constexpr std::size_t kRecord = 512;  // about what a change adds to the server's journal

void Require(bool held) {
  if (!held) std::abort();
}

// Another content for each thread and step.
std::array<char, kSize> Content(int thread, std::uint64_t step) {
  std::array<char, kSize> bytes{};
  const std::uint64_t head[] = {static_cast<std::uint64_t>(thread), step};
  std::memcpy(bytes.data(), head, sizeof head);
  return bytes;
}

void WriteContent(const ustring& path, int thread, std::uint64_t step, bool sync) {
  const std::array<char, kSize> bytes = Content(thread, step);
  platform::ScopedFile file;
  platform::Files& files = platform::files();
  std::size_t written = 0;
  Require(files.Open(path, platform::OpenMode::kTruncate, *file.receive()).ok());
  Require(files.Write(file.get(), bytes.data(), bytes.size(), written).ok() && written == kSize);
  if (sync) Require(files.Sync(file.get()).ok());
}

// A file that many append to: whoever comes first writes and syncs for all that wait.
class Journal {
 public:
  explicit Journal(const ustring& path) {
    Require(platform::files().Open(path, platform::OpenMode::kTruncate, *file_.receive()).ok());
  }

  void Commit() {
    std::unique_lock lock(mutex_);
    const std::uint64_t mine = ++wanted_;
    while (synced_ < mine) {
      if (busy_) {
        ended_.wait(lock);
        continue;
      }
      busy_ = true;
      const std::uint64_t upto = wanted_;
      const std::string records(static_cast<std::size_t>(upto - synced_) * kRecord, 'r');
      lock.unlock();
      std::size_t written = 0;
      Require(platform::files().Write(file_.get(), records.data(), records.size(), written).ok() &&
              platform::files().Sync(file_.get()).ok());
      lock.lock();
      synced_ = upto;
      busy_ = false;
      ended_.notify_all();
    }
  }

 private:
  platform::ScopedFile file_;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::uint64_t wanted_ = 0, synced_ = 0;
  bool busy_ = false;
};

void BareFiles(benchmark::State& state) {
  static test::TempFolder folder;
  static Journal journal(folder / "journal");
  platform::Files& files = platform::files();
  const std::string own = std::to_string(state.thread_index()) + "-";
  const ustring part = folder / ("part" + own), store = folder / ("store" + own);
  (void)files.MakeDirectory(store);
  static std::atomic<std::uint64_t> step = 0;
  for (auto _ : state) {
    const std::uint64_t number = ++step;
    WriteContent(part, state.thread_index(), number, true);
    std::filesystem::rename(part.str(), store.str() + "/" + std::to_string(number));
    Require(files.SyncDirectory(store).ok());
    journal.Commit();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BareFiles)->Threads(kThreads)->UseRealTime()->MinTime(4);

ConnectionInfo Info(const test::ServerProcess& server, bool use_ssl) {
  ConnectionInfo info;
  info.server_ip = "127.0.0.1";
  info.server_port = server.port;
  info.session = ustring(server.token);
  info.use_ssl = use_ssl;
  info.ssl_allow_untrust = true;
  info.version_info.build_number = 3317;
  return info;
}

PObject UploadRequest(const std::string& token, const ustring& path, const ustring& file) {
  PObject request;
  InitRequest(request, "upload");
  request["session"] = ustring(token);
  request["view_id"] = 1;
  request["node_id"] = 1;
  request["path"] = path;
  request["sync_id"] = 0;
  request["max_id"] = 0;
  request["is_dir"] = false;
  request["mtime"]["refer"] = false;
  request["mtime"]["mtime"] = 1'600'000'000;
  SimpleFileReader reader;
  ustring hash;
  reader.setFile(file);
  reader.setHashString(hash);
  Require(reader.readFile() == 0);
  PObject::binary_type data;
  data.path = file;
  data.length = kSize;
  PObject& content = request["file"];
  content["refer"] = false;
  content["is_delta"] = false;
  content["size"] = data.length;
  content["hash"] = hash;
  content["data"].asBinary() = data;
  return request;
}

void Uploads(benchmark::State& state) {
  static test::ServerProcess server;
  static test::TempFolder files;
  static std::atomic<std::uint64_t> step = 0;
  const std::string own = std::to_string(state.thread_index());
  const ustring file = files / ("upload" + own);
  PStream stream;
  const Connection connection(Info(server, state.range(0) != 0), nullptr, nullptr);
  ProtocolClient client(&stream, connection);
  client.SetReceiveLocation(ustring(files.path()));
  for (auto _ : state) {
    const std::uint64_t number = ++step;
    WriteContent(file, state.thread_index(), number, false);
    const ustring path("/folder" + own + "/file" + std::to_string(number));
    PObject answer;
    const PObject request = UploadRequest(server.token, path, file);
    Require(client.Request(SCMD_EVT_RECV_4, request, answer) == 0);
    Require(!answer.hasMember("error"));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Uploads)->ArgName("tls")->Arg(0)->Arg(1)->Threads(kThreads)->UseRealTime()->MinTime(4);

}  // namespace
}  // namespace tolven
