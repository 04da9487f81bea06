#include "peers.h"

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "bench-support.h"

namespace tolven {

namespace {

bool Has(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace

Peers::Peers(std::string from, std::string work) : from_(std::move(from)), work_(std::move(work)) {}

void Peers::Run(const std::string& what) const { RunAll(&what); }
void Peers::Prepare() const { RunAll(nullptr); }

void Peers::RunAll(const std::string* what) const {
  const std::string to = work_ + "/peer-";
  const std::string unison = "UNISON=" + work_ + "/unison unison " + from_ + " " + to + "unison";
  const std::string rclone =
      "rclone -q --config " + work_ + "/rclone.conf sync " + from_ + " " + to + "rclone";
  // Those that do not sync what they write have it synced by the file system.
  const Peer peers[] = {
      {"rsync", "rsync --fsync",
       "rsync -a --fsync --no-whole-file --exclude .Zentrova\\* " + from_ + "/ " + to + "rsync/"},
      {"unison", "unison, sync",
       unison + " -batch -ui text -ignore 'Name .Zentrova*' >/dev/null 2>&1 && sync -f " + work_},
      {"rclone", "rclone sync, sync", rclone + " --exclude '.Zentrova*/**' && sync -f " + work_},
  };
  for (const Peer& peer : peers) {
    if (!Has(peer.program)) continue;
    const BenchClock::time_point start = BenchClock::now();
    const bool done = std::system(peer.command.c_str()) == 0;
    if (what != nullptr) {
      Print(*what + ", " + peer.title, SecondsSince(start), done ? "" : "failed");
    }
  }
}

}  // namespace tolven
