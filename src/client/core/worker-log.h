// Log lines of the worker. A macro, so that an event is only put into words when the line is
// wanted. `text` is a narrow literal with the line's end.
#pragma once

#include "lib/log.h"

#define WORKER_LOG(level, text, ...)                                            \
  do {                                                                          \
    if (::tolven::Logger::IsEnabled(::tolven::Logger::level, "worker_debug")) { \
      ::tolven::Logger::LogMsg(::tolven::Logger::level, "worker_debug", text,   \
                               __LINE__ __VA_OPT__(, ) __VA_ARGS__);            \
    }                                                                           \
  } while (false)

#define WORKER_DEBUG(text, ...) WORKER_LOG(L_DEBUG, L"[DEBUG] worker(%d): " text, __VA_ARGS__)
#define WORKER_INFO(text, ...) WORKER_LOG(L_INFO, L"[INFO] worker(%d): " text, __VA_ARGS__)
#define WORKER_NOTE(text, ...) WORKER_LOG(L_NOTICE, L"[NOTE] worker(%d): " text, __VA_ARGS__)
#define WORKER_WARNING(text, ...) WORKER_LOG(L_WARNING, L"[WARNING] worker(%d): " text, __VA_ARGS__)
#define WORKER_ERROR(text, ...) WORKER_LOG(L_ERR, L"[ERROR] worker(%d): " text, __VA_ARGS__)
#define WORKER_CRIT(text, ...) WORKER_LOG(L_CRIT, L"[CRIT] worker(%d): " text, __VA_ARGS__)
