// The log of the proxy client: whatever function the process stores, and silence before.
#pragma once

#include <span>

#include "lib/log.h"

namespace tolven {

using ProxyLogFunction = void (*)(Logger::Level, LogCategory, const xchar* format,
                                  std::span<const LogArg> args);

// Null: nothing is logged any more. Any thread may call.
void ZENTProxyInitLogger(ProxyLogFunction function);
ProxyLogFunction ProxyLogger();

template <class... Args>
void LogProxy(Logger::Level level, const xchar* format, const Args&... args) {
  const ProxyLogFunction function = ProxyLogger();
  if (function == nullptr) return;
  const LogArg list[sizeof...(Args) + 1] = {LogArg(args)..., LogArg()};
  function(level, "proxy_debug", format, std::span<const LogArg>(list, sizeof...(Args)));
}

}  // namespace tolven
