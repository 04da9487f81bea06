#include "client/core/event-dispatcher.h"

#include <utility>

#include "client/core/event-context.h"
#include "lib/log.h"

namespace tolven {

void EventDispatcher::Add(Event::Type type, std::unique_ptr<EventHandler> handler) {
  handlers_[type].push_back(std::move(handler));
}

void EventDispatcher::AddFilter(std::unique_ptr<EventFilter> filter) {
  filters_.push_back(std::move(filter));
}

int EventDispatcher::Dispatch(EventContext& context, WorkerController& controller) {
  const auto applies = [&](EventHandler& handler) {
    handler.SetContext(&context);
    handler.SetWorkerController(&controller);
    return handler.FilterEvent();
  };
  for (const auto& filter : filters_) {
    if (!applies(*filter)) continue;
    Logger::LogMsg(Logger::L_INFO, "worker_debug",
                   L"[INFO] event-dispatcher(%d): Global filter filter out event: %s\n", __LINE__,
                   context.GetEvent().toString());
    return 0;
  }
  for (const auto& handler : handlers_[context.GetEvent().m_type]) {
    if (applies(*handler)) return handler->Handle();
  }
  Logger::LogMsg(Logger::L_CRIT, "worker_debug",
                 L"[CRIT] event-dispatcher(%d): No handler found for event '%s'.\n", __LINE__,
                 context.GetEvent().toString());
  return -1;
}

}  // namespace tolven
