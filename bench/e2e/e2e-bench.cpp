// The daemon against the server over TLS, both syncing to disk, beside the peers that this machine
// has (rsync, unison). One run prints one table: seconds by the clock, processor seconds of daemon
// and server, and resident memory of the daemon. Arguments: what to run (files, large, rescan,
// change, second); all without.

#include <fmt/core.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include "bench-support.h"
#include "e2e/client-process.h"
#include "e2e/server-process.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;
using Clock = BenchClock;

constexpr int kFiles = 10'000;
constexpr std::size_t kFileSize = 4096;
constexpr std::size_t kLargeSize = std::size_t{1} << 30;

bool Has(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

double Timed(const std::string& command) {
  const Clock::time_point start = Clock::now();
  if (std::system(command.c_str()) != 0) fmt::print("failed: {}\n", command);
  return SecondsSince(start);
}

std::uint64_t Rows(const test::ClientProcess& client) {
  std::uint64_t rows = 0;
  client.Query(
      "SELECT count(*) FROM event_table WHERE fileType = 0 AND syncID > 0;",
      [&](sqlite3_stmt* row) { rows = static_cast<std::uint64_t>(sqlite3_column_int64(row, 0)); });
  return rows;
}

std::string RowHash(const test::ClientProcess& client, const std::string& path) {
  std::string hash;
  client.Query("SELECT fileCheckSum || syncID FROM event_table WHERE path = '" + path + "';",
               [&](sqlite3_stmt* row) {
                 hash = reinterpret_cast<const char*>(sqlite3_column_text(row, 0));
               });
  return hash;
}

void WaitFor(const std::function<bool()>& condition) {
  while (!condition()) std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

// Peers copy a tree and put it on disk in the end.
void BenchPeers(const std::string& what, const std::string& from, const std::string& work) {
  const std::string to = work + "/peer";
  if (Has("rsync")) {
    fs::remove_all(to);
    Print(what + ", rsync --fsync", Timed("rsync -a --fsync " + from + "/ " + to + "/"));
  }
  if (Has("unison")) {
    fs::remove_all(to);
    Print(what + ", unison",
          Timed("UNISON=" + work + "/unison unison " + from + " " + to +
                " -batch -ui text -ignore 'Name .Zentrova*' >/dev/null 2>&1; sync " + to));
  }
}

void BenchFiles() {
  const std::string what = "first sync of 10,000 files of 4 KiB";
  test::TempFolder work;
  const std::string root = (work / "root").str();
  MakeFiles(root, kFiles, kFileSize);
  test::ServerProcess server;
  const Clock::time_point start = Clock::now();
  test::ClientProcess client(server, "bench", {.tls = true, .root = root});
  WaitFor([&] { return Rows(client) == kFiles; });
  Print(what, SecondsSince(start));
  BenchPeers(what, root, work.path());
}

void BenchLarge() {
  test::TempFolder work;
  const std::string root = (work / "root").str();
  fs::create_directories(root);
  std::string content = RandomBytes(kLargeSize, 7);
  test::WriteFile(ustring(root + "/large"), content);
  test::ServerProcess server;
  Clock::time_point start = Clock::now();
  test::ClientProcess client(server, "bench", {.tls = true, .root = root});
  WaitFor([&] { return Rows(client) == 1; });
  Print("one file of 1 GiB", SecondsSince(start));
  BenchPeers("one file of 1 GiB", root, work.path());
  const std::string old = RowHash(client, "/large");
  content.replace(kLargeSize / 2, 1U << 20, RandomBytes(1U << 20, 9));
  content.insert(0, RandomBytes(104, 11).substr(0, 100));
  test::WriteFile(ustring(root + "/next"), content);
  content.clear();
  content.shrink_to_fit();
  start = Clock::now();
  fs::rename(root + "/next", root + "/large");
  WaitFor([&] { return RowHash(client, "/large") != old; });
  Print("it again, 1 MiB changed and 100 bytes in front", SecondsSince(start));
}

void BenchChange() {
  test::ServerProcess server;
  test::ClientProcess one(server, "one", {.tls = true}), two(server, "two", {.tls = true});
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
  Print("a small change until its upload is answered", upload / kTimes);
  Print("a small change until a second client has it", travel / kTimes,
        fmt::format("worst {:.2f} s", worst));
}

}  // namespace
}  // namespace tolven

int main(int argc, char** argv) {
  const std::set<std::string> wanted(argv + 1, argv + argc);
  const auto run = [&](const char* name, void (*bench)()) {
    if (wanted.empty() || wanted.contains(name)) bench();
  };
  run("files", tolven::BenchFiles);
  run("large", tolven::BenchLarge);
  run("rescan", tolven::BenchRescan);
  run("change", tolven::BenchChange);
  return 0;
}
