#include "client/core/task-factory.h"

#include "client/core/idle-task.h"

namespace tolven {

TaskTable MakeTasks(std::size_t worker_count) {
  TaskTable table(TASK_WORKER + worker_count);
  for (auto& task : table) task = std::make_unique<IdleTask>();
  return table;
}

}  // namespace tolven
