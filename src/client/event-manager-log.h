// Log lines of the event manager. A macro, so that an event is only put into words when the line is
// wanted. `text` is a narrow literal with the line's end.
#pragma once

#include "lib/log.h"

#define EVENT_MGR_LOG(level, text, ...)                                            \
  do {                                                                             \
    if (::tolven::Logger::IsEnabled(::tolven::Logger::level, "event_mgr_debug")) { \
      ::tolven::Logger::LogMsg(::tolven::Logger::level, "event_mgr_debug", text,   \
                               __LINE__ __VA_OPT__(, ) __VA_ARGS__);               \
    }                                                                              \
  } while (false)

#define EVENT_MGR_DEBUG(text, ...) \
  EVENT_MGR_LOG(L_DEBUG, L"[DEBUG] event-manager(%d): " text, __VA_ARGS__)
#define EVENT_MGR_INFO(text, ...) \
  EVENT_MGR_LOG(L_INFO, L"[INFO] event-manager(%d): " text, __VA_ARGS__)
#define EVENT_MGR_WARNING(text, ...) \
  EVENT_MGR_LOG(L_WARNING, L"[WARNING] event-manager(%d): " text, __VA_ARGS__)
#define EVENT_MGR_ERROR(text, ...) \
  EVENT_MGR_LOG(L_ERR, L"[ERROR] event-manager(%d): " text, __VA_ARGS__)
