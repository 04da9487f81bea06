// Log lines of the event tree. Macros, so that the arguments, often a whole event or a path put
// together from its names, are only worked out when the line is wanted.
#pragma once

#include "lib/log.h"

#define EVENT_LOG_AT(level, format, ...)                             \
  do {                                                               \
    if (::tolven::Logger::IsEnabled(level, "event_list_debug")) {    \
      ::tolven::Logger::LogMsg(level, "event_list_debug", format,    \
                               __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
    }                                                                \
  } while (false)

// `text` is a narrow literal with the line's end.
#define EVENT_LOG_DEBUG(text, ...) \
  EVENT_LOG_AT(::tolven::Logger::L_DEBUG, L"[DEBUG] event-list2(%d): " text, __VA_ARGS__)
#define EVENT_LOG_INFO(text, ...) \
  EVENT_LOG_AT(::tolven::Logger::L_INFO, L"[INFO] event-list2(%d): " text, __VA_ARGS__)
#define EVENT_LOG_WARNING(text, ...) \
  EVENT_LOG_AT(::tolven::Logger::L_WARNING, L"[WARNING] event-list2(%d): " text, __VA_ARGS__)
#define EVENT_LOG_ERROR(text, ...) \
  EVENT_LOG_AT(::tolven::Logger::L_ERR, L"[ERROR] event-list2(%d): " text, __VA_ARGS__)
