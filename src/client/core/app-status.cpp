// What "get_status" tells.
#include <vector>

#include "client/core/app.h"
#include "client/core/connection-manager.h"
#include "client/core/interruptible-task.h"
#include "client/event-manager.h"

namespace tolven {
namespace {

// See pause_worker().
constexpr std::size_t kFirstReported = TASK_WORKER + 1;

}  // namespace

void TolvenhubApp::get_status(const PObject&, PObject& result) {
  get_session_status(result["session_list"]);
  get_connection_status(result["connection_list"]);
  get_worker_status(result["worker_list"]);
}

void TolvenhubApp::get_session_status(PObject& list) {
  PObject::array_type& elements = list.asArray();
  std::vector<Registry::Entry> entries;
  Registry::getInstance().GetAll(entries);
  for (const Registry::Entry& entry : entries) {
    const std::int32_t unfinished =
        EventManager::getInstance().GetAllPendingEventCount(entry.sess_id);
    PObject& element = elements.emplace_back();
    element["connection_id"] = entry.conn_id;
    element["session_id"] = entry.sess_id;
    element["unfinished_files"] = unfinished;
    element["status"] = entry.pause ? "pause" : unfinished == 0 ? "uptodate" : "syncing";
  }
}

void TolvenhubApp::get_connection_status(PObject& list) {
  PObject::array_type& elements = list.asArray();
  std::vector<Connection> connections;
  ConnectionManager::getInstance().get(connections);
  for (const Connection& connection : connections) {
    PObject& element = elements.emplace_back();
    element["connection_id"] = connection.getConnectionInfo().conn_id;
    element["status"] = connection.isConnected2() ? "connected" : "disconnected";
  }
}

void TolvenhubApp::get_worker_status(PObject& list) {
  PObject::array_type& elements = list.asArray();
  for (std::size_t i = kFirstReported; i < task_.size(); ++i) {
    auto* const worker = dynamic_cast<InterruptibleTask*>(task_[i].get());
    if (worker == nullptr) continue;
    std::uint64_t session = 0, sent = 0, total = 0;
    ustring path;
    WorkingType type = W_TYPE_NONE;
    worker->GetWorkingStatus(session, path, type, sent, total);
    if (type == W_TYPE_NONE) continue;
    PObject& element = elements.emplace_back();
    element["session_id"] = session;
    element["path"] = path;
    element["status"] = type == W_TYPE_UPLOAD ? "uploading" : "downloading";
    element["progress"] = sent;
    element["total_size"] = total;
  }
}

}  // namespace tolven
