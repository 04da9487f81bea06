#include "lib/ui-ipc.h"

#include "lib/ui-report-queue.h"
#include "protocol/stream.h"

namespace tolven {
namespace {

PObject PathReport(const char* kind, const Event& event) {
  PObject msg;
  msg["notify"] = kind;
  msg["session_id"] = event.m_sess_id;
  msg["path"] = event.m_path;
  msg["is_dir"] = event.isDir();
  return msg;
}

int ReportPath(const char* kind, const Event& event) {
  PObject msg = PathReport(kind, event);
  msg["event_type"] = static_cast<int>(event.m_type);
  return UI_IPC::SendMessageW(msg);
}

// Says what is broken by `key`, and carries both ids for the log of the UI.
int ReportError(const char* key, std::uint64_t id, std::uint64_t conn_id, std::uint64_t sess_id,
                int error) {
  PObject msg;
  msg["notify"] = "error";
  msg[key] = id;
  msg["error_type"] = error;
  msg["sess_id"] = sess_id;
  msg["conn_id"] = conn_id;
  return UI_IPC::SendMessageW(msg);
}

}  // namespace

int UI_IPC::ReportFileSyncingEventToUI(const Event& event) {
  return ReportPath("syncing_file", event);
}
int UI_IPC::ReportFileEventToUI(const Event& event) { return ReportPath("recent_file", event); }
int UI_IPC::ReportFileROToUI(const Event& event) { return ReportPath("readonly_file", event); }
int UI_IPC::ReportFileNoPermToUI(const Event& event) { return ReportPath("no_perm_file", event); }

int UI_IPC::ReportFileLockedEventToUI(const Event& event, int error) {
  PObject msg = PathReport("locked_file", event);
  msg["error"]["reason"] = "file locked";
  msg["error"]["code"] = error;
  return SendMessageW(msg);
}

int UI_IPC::ReportSessionErrorToUI(std::uint64_t conn_id, std::uint64_t sess_id, int error) {
  return ReportError("session_id", sess_id, conn_id, sess_id, error);
}

int UI_IPC::ReportConnectionErrorToUI(std::uint64_t conn_id, std::uint64_t sess_id, int error) {
  return ReportError("connection_id", conn_id, conn_id, sess_id, error);
}

int UI_IPC::SendMessageW(const PObject& msg) { return UiReportQueue::getInstance().Post(msg); }

int UI_IPC::LastBreath() {
  PObject msg;
  msg["action"] = "connection_terminate";
  return SendMessageW(msg);
}

int UI_IPC::Open(Channel::CH_SOCK_T fd) { return m_channel.Open(fd, true) < 0 ? -1 : 0; }

int UI_IPC::Recv(PObject& msg) {
  PStream stream;
  return stream.Recv(m_channel, msg) < 0 ? -1 : 0;
}

}  // namespace tolven
