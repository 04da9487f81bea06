#include "lib/critical-section.h"

#include "lib/log.h"

namespace tolven {

void CriticalSection::start() {
  if (held_ || mutex_ == nullptr) return;
  Logger::LogMsg(Logger::L_DEBUG, "utility_debug",
                 L"[DEBUG] utility(%d): entering critical section\n", __LINE__);
  mutex_->lock();
  held_ = true;
}

void CriticalSection::end() {
  if (!held_ || mutex_ == nullptr) return;
  Logger::LogMsg(Logger::L_DEBUG, "utility_debug",
                 L"[DEBUG] utility(%d): leaving critical section\n", __LINE__);
  mutex_->unlock();
  held_ = false;
}

}  // namespace tolven
