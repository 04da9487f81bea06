// The daemon against the server over TLS, both syncing to disk, beside the peers that this machine
// has (rsync, unison, rclone, syncthing). One run prints one table: seconds by the clock, processor
// seconds of daemon and server, and memory of the daemon. Arguments: what to run (files, large,
// rescan, change); all without. With "alone", peers are left out. With "bytes" everything goes
// through a forwarder that counts what the daemon sends, and that costs some time itself; peers are
// left out then, too.

#include <fmt/core.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "bench-support.h"
#include "e2e/client-process.h"
#include "e2e/server-process.h"
#include "peers.h"
#include "process-usage.h"
#include "support/forwarder.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;
using Clock = BenchClock;

constexpr int kFiles = 10'000;
constexpr std::size_t kFileSize = 4096;
constexpr std::size_t kLargeSize = std::size_t{1} << 30;

bool g_counting = false;  // the argument "bytes"
bool g_peers = true;      // neither "bytes" nor "alone"

std::uint64_t Number(const test::ClientProcess& client, const char* sql) {
  std::uint64_t number = 0;
  client.Query(sql, [&](sqlite3_stmt* row) {
    number = static_cast<std::uint64_t>(sqlite3_column_int64(row, 0));
  });
  return number;
}

// Whether so many files are synced. It is asked often, while the machine is to do other things: so
// the rows are counted only once there may be as many.
constexpr int kSyncedPauseMs = 50;
bool AreSynced(const test::ClientProcess& client, std::uint64_t files) {
  return Number(client, "SELECT max(id) FROM event_table;") >= files &&
         Number(client, "SELECT count(*) FROM event_table WHERE fileType = 0 AND syncID > 0;") ==
             files;
}

std::string RowHash(const test::ClientProcess& client, const std::string& path) {
  std::string hash;
  client.Query("SELECT fileCheckSum || syncID FROM event_table WHERE path = '" + path + "';",
               [&](sqlite3_stmt* row) {
                 hash = reinterpret_cast<const char*>(sqlite3_column_text(row, 0));
               });
  return hash;
}

// The way from a daemon to a server; counted when that is wanted.
class Wire {
 public:
  explicit Wire(const test::ServerProcess& server) {
    if (g_counting) counter_.emplace(server.port);
  }

  int port() const { return counter_ ? counter_->port() : 0; }
  // What was sent since the last time it was asked.
  std::string Take() {
    if (!counter_) return {};
    const std::uint64_t up = counter_->up() - seen_;
    seen_ += up;
    return fmt::format("; {:.2f} MB sent", static_cast<double>(up) / 1e6);
  }

 private:
  std::optional<test::Forwarder> counter_;
  std::uint64_t seen_ = 0;
};

// A server and a daemon with a folder, and what they have needed.
class Pair {
 public:
  explicit Pair(const std::string& root)
      : wire_(server_),
        client_(server_, "bench",
                {.tls = true, .root = root, .port = wire_.port(), .levels = kDefaultLevels}) {}

  const test::ClientProcess& client() const { return client_; }
  double SecondsSinceStart() const { return SecondsSince(start_); }  // of the daemon
  // Since the last time it was asked.
  std::string TakeCost() {
    const double daemon = ProcessorSeconds(client_.pid()), server = ProcessorSeconds(server_.pid());
    std::string text =
        fmt::format("processor: daemon {:.2f} s, server {:.2f} s; daemon {:.0f} MiB{}",
                    daemon - daemon_seconds_, server - server_seconds_,
                    PeakResidentMib(client_.pid()), wire_.Take());
    daemon_seconds_ = daemon;
    server_seconds_ = server;
    return text;
  }

 private:
  // Warnings, as a daemon has them that nobody looks into.
  static constexpr char kDefaultLevels[] =
      "client_debug = 4\nworker_debug = 4\nsyncer_debug = 4\nevent_list_debug = 4\n";

  test::ServerProcess server_;
  Wire wire_;
  const Clock::time_point start_ = Clock::now();
  test::ClientProcess client_;
  double daemon_seconds_ = 0, server_seconds_ = 0;
};

void WaitFor(const std::function<bool()>& condition, int pause_ms = 10) {
  while (!condition()) std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
}

void BenchFiles() {
  const std::string what = "first sync of 10,000 files of 4 KiB";
  test::TempFolder work;
  const std::string root = (work / "root").str();
  MakeFiles(root, kFiles, kFileSize);
  Pair pair(root);
  WaitFor([&] { return AreSynced(pair.client(), kFiles); }, kSyncedPauseMs);
  Print(what, pair.SecondsSinceStart(), pair.TakeCost());
  if (g_peers) Peers(root, work.path()).Run(what);
}

void BenchLarge() {
  test::TempFolder work;
  const std::string root = (work / "root").str();
  fs::create_directories(root);
  std::string content = RandomBytes(kLargeSize, 7);
  test::WriteFile(ustring(root + "/large"), content);
  Pair pair(root);
  WaitFor([&] { return AreSynced(pair.client(), 1); });
  Print("one file of 1 GiB", pair.SecondsSinceStart(), pair.TakeCost());
  Peers peers(root, work.path());
  if (g_peers) peers.Run("one file of 1 GiB");
  const std::string old = RowHash(pair.client(), "/large");
  content.replace(kLargeSize / 2, 1U << 20, RandomBytes(1U << 20, 9));
  content.insert(0, RandomBytes(104, 11).substr(0, 100));
  test::WriteFile(ustring(root + "/next"), content);
  content.clear();
  content.shrink_to_fit();
  const Clock::time_point start = Clock::now();
  fs::rename(root + "/next", root + "/large");
  WaitFor([&] { return RowHash(pair.client(), "/large") != old; });
  const std::string what = "it again, 1 MiB changed and 100 bytes in front";
  Print(what, SecondsSince(start), pair.TakeCost());
  if (g_peers) peers.Run(what);
}

void BenchChange() {
  test::ServerProcess server;
  const test::ClientProcess::Options options{.tls = true};
  test::ClientProcess one(server, "one", options), two(server, "two", options);
  test::WriteFile(one / "file", "0");
  WaitFor([&] { return fs::exists((two / "file").str()); });
  double upload = 0, travel = 0, worst = 0;
  constexpr int kTimes = 10;
  for (int i = 1; i <= kTimes; ++i) {
    const std::string content = "change " + std::to_string(i);
    const std::string old = RowHash(one, "/file");
    const Clock::time_point start = Clock::now();
    test::WriteFile(one / "file", content);
    WaitFor([&] { return RowHash(one, "/file") != old; });
    upload += SecondsSince(start);
    WaitFor([&] { return test::ReadFile(two / "file") == content; });
    travel += SecondsSince(start);
    worst = std::max(worst, SecondsSince(start));
    std::this_thread::sleep_for(std::chrono::milliseconds(700 * i));
  }
  const std::string what = "a small change until its upload is answered";
  Print(what, upload / kTimes);
  Print("a small change until a second client has it", travel / kTimes,
        fmt::format("worst {:.2f} s", worst));
  test::TempFolder work;
  const std::string root = (work / "root").str();
  MakeFiles(root, kFilesInFolder, kFileSize);
  Peers peers(root, work.path());
  if (!g_peers) return;
  peers.Prepare();
  test::WriteFile(ustring(root + BenchPath(0)), "changed");
  peers.Run(what);
}

}  // namespace
}  // namespace tolven

int main(int argc, char** argv) {
  std::set<std::string> wanted(argv + 1, argv + argc);
  tolven::g_counting = wanted.erase("bytes") > 0;
  tolven::g_peers = wanted.erase("alone") == 0 && !tolven::g_counting;
  const auto run = [&](const char* name, void (*bench)()) {
    if (wanted.empty() || wanted.contains(name)) bench();
  };
  run("files", tolven::BenchFiles);
  run("large", tolven::BenchLarge);
  run("rescan", tolven::BenchRescan);
  run("change", tolven::BenchChange);
  return 0;
}
