#include "client/core/task-factory.h"

#include "client/core/filter-utils.h"
#include "client/core/recycle-cleaner.h"
#include "client/core/syncer.h"
#include "client/core/worker.h"
#include "client/windows/detector-win-vol.h"
#include "client/windows/detector-win2.h"

namespace tolven {

TaskTable MakeTasks(std::size_t worker_count) {
  TaskTable table(TASK_WORKER + worker_count);
  table[TASK_DETECTOR] = std::make_unique<Detector>();
  table[TASK_DETECTOR_VOL] = std::make_unique<DetectorVol>();
  table[TASK_RECYCLE_CLEANER] = std::make_unique<RecycleCleaner>();
  table[TASK_SYNCER] = std::make_unique<Syncer>(ReplaceFilter);
  for (std::size_t i = TASK_WORKER; i < table.size(); ++i) {
    table[i] = std::make_unique<Worker>(Worker::AddHandlers());
  }
  return table;
}

}  // namespace tolven
