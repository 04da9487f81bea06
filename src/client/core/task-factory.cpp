#include "client/core/task-factory.h"

#include "client/core/filter-utils.h"
#include "client/core/filters/preliminary-filter.h"
#include "client/core/handlers/download-remote-handler-v0.h"
#include "client/core/handlers/download-remote-handler.h"
#include "client/core/handlers/expand-handler.h"
#include "client/core/handlers/expand-local-delete-handler.h"
#include "client/core/handlers/expand-server-delete-handler.h"
#include "client/core/handlers/force-download-handler.h"
#include "client/core/handlers/remove-local-handler.h"
#include "client/core/handlers/remove-remote-handler.h"
#include "client/core/handlers/rescan-handler.h"
#include "client/core/handlers/upload-local-handler.h"
#include "client/core/recycle-cleaner.h"
#include "client/core/syncer.h"
#include "client/core/worker.h"
#include "client/windows/detector-win-vol.h"
#include "client/windows/detector-win2.h"

namespace tolven {

namespace {

template <class... Handlers>
void AddAll(EventDispatcher& dispatcher, Event::Type type) {
  (dispatcher.Add(type, std::make_unique<Handlers>()), ...);
}

}  // namespace

void AddEventHandlers(EventDispatcher& dispatcher) {
  dispatcher.AddFilter(std::make_unique<PreliminaryFilter>());
  AddAll<RescanHandler, ExpandHandler, ExpandServerDeleteHandler, ExpandLocalDeleteHandler,
         UploadLocalHandler, ForceDownloadHandler, DownloadRemoteHandlerV0, DownloadRemoteHandler>(
      dispatcher, Event::EV_CREATE);
  AddAll<ExpandServerDeleteHandler, ExpandLocalDeleteHandler, UploadLocalHandler,
         ForceDownloadHandler, DownloadRemoteHandlerV0, DownloadRemoteHandler>(dispatcher,
                                                                               Event::EV_MODIFY);
  AddAll<ExpandServerDeleteHandler, ExpandLocalDeleteHandler, RemoveLocalHandler,
         RemoveRemoteHandler>(dispatcher, Event::EV_REMOVE);
}

TaskTable MakeTasks(std::size_t worker_count) {
  TaskTable table(TASK_WORKER + worker_count);
  table[TASK_DETECTOR] = std::make_unique<Detector>();
  table[TASK_DETECTOR_VOL] = std::make_unique<DetectorVol>();
  table[TASK_RECYCLE_CLEANER] = std::make_unique<RecycleCleaner>();
  table[TASK_SYNCER] = std::make_unique<Syncer>(ReplaceFilter);
  for (std::size_t i = TASK_WORKER; i < table.size(); ++i) {
    table[i] = std::make_unique<Worker>(AddEventHandlers);
  }
  return table;
}

}  // namespace tolven
