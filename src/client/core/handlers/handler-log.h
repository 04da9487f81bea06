// Log lines of the handlers and of what they share. A macro, so that arguments are only put into
// words when the line is wanted. The name in front of the line comes from Source(), a function of
// the class or file that logs; `text` is a narrow literal without the line's end.
#pragma once

#include "lib/log.h"

#define HANDLER_LOG(level, text, ...)                                                   \
  do {                                                                                  \
    if (::tolven::Logger::IsEnabled(::tolven::Logger::level, "worker_debug")) {         \
      ::tolven::Logger::LogMsg(::tolven::Logger::level, "worker_debug", text, Source(), \
                               __LINE__ __VA_OPT__(, ) __VA_ARGS__);                    \
    }                                                                                   \
  } while (false)

#define HANDLER_DEBUG(text, ...) HANDLER_LOG(L_DEBUG, L"[DEBUG] %s(%d): " text L"\n", __VA_ARGS__)
#define HANDLER_INFO(text, ...) HANDLER_LOG(L_INFO, L"[INFO] %s(%d): " text L"\n", __VA_ARGS__)
#define HANDLER_NOTE(text, ...) HANDLER_LOG(L_NOTICE, L"[NOTE] %s(%d): " text L"\n", __VA_ARGS__)
#define HANDLER_WARNING(text, ...) \
  HANDLER_LOG(L_WARNING, L"[WARNING] %s(%d): " text L"\n", __VA_ARGS__)
#define HANDLER_ERROR(text, ...) HANDLER_LOG(L_ERR, L"[ERROR] %s(%d): " text L"\n", __VA_ARGS__)
#define HANDLER_CRIT(text, ...) HANDLER_LOG(L_CRIT, L"[CRIT] %s(%d): " text L"\n", __VA_ARGS__)
