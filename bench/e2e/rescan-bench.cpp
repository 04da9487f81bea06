#include <memory>

#include "bench-support.h"
#include "client/core/event-context.h"
#include "client/core/handlers/rescan-handler.h"
#include "client/core/worker.h"
#include "client/file-event-db.h"
#include "lib/file-op.h"

namespace tolven {

namespace {

constexpr int kUnchanged = 100'000;

}  // namespace

// The handler's own time, without the daemon around it.
void BenchRescan() {
  test::TempFolder work;
  const std::string root = (work / "root").str();
  MakeFiles(root, kUnchanged, 16);
  std::filesystem::create_directories((work / "db/sign").str());
  auto db = std::make_shared<FileEventDB>();
  if (db->initialize(work / "db/event-db.sqlite") != 0) return;
  DBFileInfo row;
  row.isExist = 1;
  row.syncID = row.maxSyncID = 1;
  for (int i = 0; i < kUnchanged; ++i) {
    const std::string path =
        "/folder" + std::to_string(i / kFilesInFolder) + "/file" + std::to_string(i);
    FILE_INFO info;
    FSStat(ustring(root + path), info, false);
    row.path = ustring(path);
    row.fileSize = info.size;
    row.localFileModTime = info.mtime;
    db->setEventInfo(row);
  }
  Registry::Entry entry;
  entry.sess_id = 1;
  entry.recursive = true;
  entry.local_path = ustring(root);
  entry.event_db = db;
  Registry::getInstance().Set(entry);
  EventContext context;
  Event event;
  event.m_type = Event::EV_CREATE;
  event.m_sess_id = 1;
  event.m_path = "/";
  event.setDir();
  event.setExpand();
  event.setRescan();
  context.SetEvent(event);
  context.SetEntry(entry);
  context.Update();
  Worker worker([](EventDispatcher&) {});
  WorkerController controller(&worker);
  RescanHandler handler;
  handler.SetContext(&context);
  handler.SetWorkerController(&controller);
  const BenchClock::time_point start = BenchClock::now();
  const int code = handler.Handle();
  Print("a rescan of 100,000 unchanged files", SecondsSince(start),
        "result " + std::to_string(code));
}

}  // namespace tolven
