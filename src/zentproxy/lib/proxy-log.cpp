#include "zentproxy/lib/proxy-log.h"

#include <atomic>

namespace tolven {

namespace {

std::atomic<ProxyLogFunction> log_function{nullptr};

}  // namespace

void ZENTProxyInitLogger(ProxyLogFunction function) { log_function = function; }

ProxyLogFunction ProxyLogger() { return log_function; }

}  // namespace tolven
