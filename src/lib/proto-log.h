// The one line with which a failed step of the protocol is logged.
#pragma once

#include "lib/error-table.h"
#include "lib/log.h"

#define PROTO_COMMON_FAIL(step, code)                                              \
  (::tolven::Logger::LogMsg(::tolven::Logger::L_DEBUG, "proto_common_debug",       \
                            L"[DEBUG] proto-common(%d): " step ": %s\n", __LINE__, \
                            ::tolven::ErrorText(code)),                            \
   (code))
