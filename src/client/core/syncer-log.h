// Log lines of the syncer. A macro, so that requests and answers are only put into words when the
// line is wanted. `text` is a narrow literal with the line's end.
#pragma once

#include "lib/log.h"

#define SYNCER_LOG(level, tag, text, ...)                                       \
  do {                                                                          \
    if (::tolven::Logger::IsEnabled(::tolven::Logger::level, "syncer_debug")) { \
      ::tolven::Logger::LogMsg(::tolven::Logger::level, "syncer_debug",         \
                               L"[" tag "] syncer(%d): " text,                  \
                               __LINE__ __VA_OPT__(, ) __VA_ARGS__);            \
    }                                                                           \
  } while (false)

#define SYNCER_DEBUG(text, ...) SYNCER_LOG(L_DEBUG, "DEBUG", text, __VA_ARGS__)
#define SYNCER_INFO(text, ...) SYNCER_LOG(L_INFO, "INFO", text, __VA_ARGS__)
#define SYNCER_NOTE(text, ...) SYNCER_LOG(L_NOTICE, "NOTE", text, __VA_ARGS__)
#define SYNCER_WARNING(text, ...) SYNCER_LOG(L_WARNING, "WARNING", text, __VA_ARGS__)
#define SYNCER_ERROR(text, ...) SYNCER_LOG(L_ERR, "ERROR", text, __VA_ARGS__)
#define SYNCER_CRIT(text, ...) SYNCER_LOG(L_CRIT, "CRIT", text, __VA_ARGS__)
