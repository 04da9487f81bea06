// Log lines of the detector. A macro, so that nothing is put into words for lines that nobody
// wants. `text` is a narrow literal with the line's end.
#pragma once

#include "lib/log.h"

#define DETECTOR_LOG(level, tag, text, ...)                                       \
  do {                                                                            \
    if (::tolven::Logger::IsEnabled(::tolven::Logger::level, "detector_debug")) { \
      ::tolven::Logger::LogMsg(::tolven::Logger::level, "detector_debug",         \
                               L"[" tag "] detector-win2(%d): " text,             \
                               __LINE__ __VA_OPT__(, ) __VA_ARGS__);              \
    }                                                                             \
  } while (false)

#define DETECTOR_DEBUG(text, ...) DETECTOR_LOG(L_DEBUG, "DEBUG", text, __VA_ARGS__)
#define DETECTOR_INFO(text, ...) DETECTOR_LOG(L_INFO, "INFO", text, __VA_ARGS__)
#define DETECTOR_WARNING(text, ...) DETECTOR_LOG(L_WARNING, "WARNING", text, __VA_ARGS__)
#define DETECTOR_ERROR(text, ...) DETECTOR_LOG(L_ERR, "ERROR", text, __VA_ARGS__)
