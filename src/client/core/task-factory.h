#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "client/core/task.h"

namespace tolven {

// Places in the task table. The workers follow from TASK_WORKER on.
enum TaskIndex : std::size_t {
  TASK_DETECTOR = 0,
  TASK_DETECTOR_VOL = 1,
  TASK_RECYCLE_CLEANER = 2,
  TASK_SYNCER = 3,
  TASK_WORKER = 4,
};

using TaskTable = std::vector<std::unique_ptr<Task>>;

// Makes a table of TASK_WORKER + `worker_count` tasks, none of them running. An empty table when it
// cannot.
using TaskFactory = std::function<TaskTable(std::size_t worker_count)>;

class EventDispatcher;

// What a worker of the daemon does with its events: for each type the handlers in the order in
// which they are asked.
void AddEventHandlers(EventDispatcher& dispatcher);

// The tasks of the daemon.
TaskTable MakeTasks(std::size_t worker_count);

}  // namespace tolven
