// The folder watcher on a real folder: a burst of 20,000 files over 200 new folders, renames and
// removals among them, after which every path that is left must have come as an event, lie below a
// folder that was walked, or a rescan must have been asked for; and the processor time while
// nothing happens below 100,000 folders. Ends with 1 when a path was lost or the idle load is above
// half a percent of a core.
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "client/core/registry.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"
#include "client/windows/detector-win2.h"
#include "support/temp-folder.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using tolven::Detector;
using tolven::Event;
using tolven::EventManager;
using tolven::Registry;
using tolven::Task;
using tolven::ustring;

constexpr int kFolders = 200, kFilesInEach = 100, kIdleFolders = 100'000;
constexpr double kIdleSeconds = 10, kMostIdleLoad = 0.005;

double ProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double ResidentMegabytes() {
  long all = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

double Since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void AddSession(const tolven::test::TempFolder& folder, std::uint64_t id, const ustring& root) {
  fs::create_directories(root.str());
  Registry::Entry entry;
  entry.sess_id = id;
  entry.local_path = root;
  entry.event_db = std::make_shared<tolven::FileEventDB>();
  entry.event_db->initialize(folder / ("db" + std::to_string(id)));
  Registry::getInstance().Set(entry);
}

// What the events say of a folder, gathered until nothing more comes for a second.
struct Seen {
  std::set<std::string> paths, walked;
  bool rescan = false;
  int events = 0;

  void Take() {
    Task task;
    Event event;
    while (EventManager::getInstance().PullEvent(&task, event) == 0) {
      ++events;
      if (event.isRescan()) rescan = true;
      (event.isExpand() ? walked : paths).insert(event.m_path.str());
      EventManager::getInstance().DoneEvent(&task, event);
    }
  }
  void TakeUntilQuiet() {
    Clock::time_point last = Clock::now();
    while (Since(last) < 1) {
      const int before = events;
      Take();
      if (events != before) last = Clock::now();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  bool Covers(const fs::path& path) const {
    if (rescan || paths.contains(path.string())) return true;
    for (fs::path above = path.parent_path(); above != "/"; above = above.parent_path()) {
      if (walked.contains(above.string())) return true;
    }
    return false;
  }
};

void MakeBurst(const std::string& root) {
  for (int folder = 0; folder < kFolders; ++folder) {
    const std::string path = root + "/d" + std::to_string(folder);
    fs::create_directory(path);
    for (int file = 0; file < kFilesInEach; ++file) {
      const std::string name = path + "/f" + std::to_string(file);
      tolven::test::WriteFile(ustring(name), "content");
      if (file % 10 == 3) fs::rename(name, name + " renamed");
      if (file % 10 == 7) fs::remove(name);
    }
    if (folder % 10 == 5) fs::rename(path, path + " renamed");
  }
}

bool Burst(Detector& detector, const tolven::test::TempFolder& folder) {
  const ustring root = folder / "burst";
  AddSession(folder, 1, root);
  if (detector.AddWatch(root, 1) != 0) return false;
  const Clock::time_point start = Clock::now();
  MakeBurst(root.str());
  const double made = Since(start);
  Seen seen;
  seen.TakeUntilQuiet();
  int lost = 0, left = 0;
  for (const auto& entry : fs::recursive_directory_iterator(root.str())) {
    const fs::path path = "/" / fs::relative(entry.path(), root.str());
    if (path.string().find("ZentrovaWorking") != std::string::npos) continue;
    ++left;
    if (!seen.Covers(path)) ++lost;
  }
  std::printf("burst: %d files and folders left after %.2f s, %d events, rescan %s, %d lost\n",
              left, made, seen.events, seen.rescan ? "asked for" : "not needed", lost);
  detector.RemoveWatch(1);
  return lost == 0;
}

bool Idle(Detector& detector, const tolven::test::TempFolder& folder) {
  const ustring root = folder / "idle";
  AddSession(folder, 2, root);
  for (int i = 0; i < kIdleFolders; ++i) {
    fs::create_directories(root.str() + "/" + std::to_string(i / 1000) + "/" + std::to_string(i));
  }
  const Clock::time_point start = Clock::now();
  const double resident = ResidentMegabytes();
  if (detector.AddWatch(root, 2) != 0) return false;
  std::printf("idle: %d folders are watched after %.2f s, in %.1f MB\n", kIdleFolders, Since(start),
              ResidentMegabytes() - resident);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const double before = ProcessorSeconds();
  std::this_thread::sleep_for(std::chrono::duration<double>(kIdleSeconds));
  const double load = (ProcessorSeconds() - before) / kIdleSeconds;
  std::printf("idle: %.3f %% of a core (wanted: below %.1f %%)\n", load * 100, kMostIdleLoad * 100);
  Seen seen;
  seen.Take();
  if (seen.rescan)
    std::printf("idle: not all folders are watched, raise %s\n",
                tolven::platform::dir_watch().LimitHint().c_str_utf8());
  return load < kMostIdleLoad && !seen.rescan;
}

}  // namespace

int main() {
  const tolven::test::TempFolder folder;
  EventManager::getInstance().SetSessionLookup([](std::uint64_t id, ustring& local_path) {
    Registry::Entry entry;
    if (Registry::getInstance().Find(id, entry) != 1) return 0;
    local_path = entry.local_path;
    return 1;
  });
  Detector detector;
  detector.Run();
  const bool burst_held = Burst(detector, folder);
  const bool idle_held = Idle(detector, folder);
  detector.Stop();
  detector.Join();
  Registry::getInstance().Clear();
  return burst_held && idle_held ? 0 : 1;
}
