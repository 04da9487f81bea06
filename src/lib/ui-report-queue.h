// Reports on their way to the UI. They leave in the order they came, through one thread, each on a
// connection of its own: the engine reports while it holds locks, and a slow UI must not hold
// those. A report that cannot be delivered is logged under "channel_ui_debug" and dropped.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <thread>

#include "platform/mutex.h"
#include "protocol/object.h"

namespace tolven {

class UiReportQueue {
 public:
  // Sends one report, logging a failure. `*abort` becomes non-zero when it has to give up.
  using Deliver = std::function<void(const PObject& report, std::atomic<int>* abort)>;

  // About 50 MB of reports; beyond it the UI is not coming back.
  static constexpr std::size_t kCapacity = 100'000;

  // The one of the process.
  static UiReportQueue& getInstance();

  explicit UiReportQueue(std::size_t capacity = kCapacity, Deliver deliver = DeliverToUi);
  ~UiReportQueue() { Stop(std::chrono::milliseconds(0)); }
  UiReportQueue(const UiReportQueue&) = delete;
  UiReportQueue& operator=(const UiReportQueue&) = delete;

  // Creates the thread. Reports that came before wait for it. To be called once.
  void Start();
  // Lets what is queued go out for at most `grace`, drops the rest, and ends the thread. Reports
  // that come later are dropped.
  void Stop(std::chrono::milliseconds grace);

  // From any thread, without waiting: 0, or -1 when the report was dropped.
  int Post(const PObject& report);

  // Connects to the UI that the settings name.
  static void DeliverToUi(const PObject& report, std::atomic<int>* abort);

 private:
  void Run();

  const std::size_t capacity_;
  const Deliver deliver_;
  std::atomic<int> abort_{0};
  std::thread thread_;

  Mutex mutex_;
  CondVar changed_;
  std::deque<PObject> reports_ GUARDED_BY(mutex_);
  bool stopping_ GUARDED_BY(mutex_) = false;  // no more reports are taken
  bool busy_ GUARDED_BY(mutex_) = false;      // one is being delivered
};

}  // namespace tolven
