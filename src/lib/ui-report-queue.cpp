#include "lib/ui-report-queue.h"

#include <utility>

#include "client/core/settings.h"
#include "lib/ipc-sender.h"
#include "lib/log.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "channel_ui_debug";

void LogNotSent(const PObject& report) {
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] ui-ipc(%d): message (%s) is not sent\n",
                 __LINE__, report.toString());
}

void LogSendFailed() {
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] ui-ipc(%d): failed to send message to IPC\n",
                 __LINE__);
}

int ConnectToUi(IPCSender& sender) {
  const ustring path = Settings::getInstance().getUISocketPath();
  if (path.empty()) {
    const int port = Settings::getInstance().getUIPort();
    if (sender.connect(port) == 0) return 0;
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] ui-ipc(%d): failed to connect to local port %d\n", __LINE__, port);
    return -1;
  }
  if (sender.connect(path.str()) == 0) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] ui-ipc(%d): failed to connect to domain socket %s\n", __LINE__, path);
  return -1;
}

}  // namespace

UiReportQueue& UiReportQueue::getInstance() {
  // Never destroyed: threads that outlive main() may still report.
  static UiReportQueue* const instance = new UiReportQueue;
  return *instance;
}

UiReportQueue::UiReportQueue(std::size_t capacity, Deliver deliver)
    : capacity_(capacity), deliver_(std::move(deliver)) {}

void UiReportQueue::Start() { thread_ = std::thread(&UiReportQueue::Run, this); }

void UiReportQueue::Stop(std::chrono::milliseconds grace) {
  const auto deadline = std::chrono::steady_clock::now() + grace;
  std::deque<PObject> dropped;
  {
    MutexLock lock(mutex_);
    stopping_ = true;
    while (thread_.joinable() && (busy_ || !reports_.empty())) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) break;
      changed_.WaitFor(mutex_, left);
    }
    dropped.swap(reports_);
    abort_ = 1;
    changed_.NotifyAll();
  }
  for (const PObject& report : dropped) LogNotSent(report);
  if (thread_.joinable()) thread_.join();
}

int UiReportQueue::Post(const PObject& report) {
  PObject copy(report);
  {
    MutexLock lock(mutex_);
    if (!stopping_ && reports_.size() < capacity_) {
      reports_.push_back(std::move(copy));
      changed_.NotifyAll();
      return 0;
    }
  }
  LogSendFailed();
  LogNotSent(report);
  return -1;
}

void UiReportQueue::Run() {
  for (;;) {
    PObject report;
    {
      MutexLock lock(mutex_);
      busy_ = false;
      changed_.NotifyAll();
      while (reports_.empty() && !stopping_) changed_.Wait(mutex_);
      if (reports_.empty()) return;
      report.swap(reports_.front());
      reports_.pop_front();
      busy_ = true;
    }
    deliver_(report, &abort_);
  }
}

void UiReportQueue::DeliverToUi(const PObject& report, std::atomic<int>* abort) {
  IPCSender sender;
  sender.setFlag(abort);
  if (ConnectToUi(sender) < 0) {
    LogNotSent(report);
  } else if (sender.send(report) < 0) {
    LogSendFailed();
    LogNotSent(report);
  } else {
    sender.finish();
  }
}

}  // namespace tolven
