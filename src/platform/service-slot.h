// The place where a service lives: the real one until a test puts another there.
#pragma once

#include <atomic>

namespace tolven::platform {

template <class Interface, class Real>
class ServiceSlot {
 public:
  static Interface& Get() {
    Interface* const replacement = Replacement().load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : RealOne();
  }
  static Interface* Set(Interface* service) {
    Interface* const before = Replacement().exchange(service, std::memory_order_acq_rel);
    return before != nullptr ? before : &RealOne();
  }

 private:
  // Never destroyed: objects that end after main() still close their handles through it.
  static Interface& RealOne() {
    static Real* const real = new Real;
    return *real;
  }
  static std::atomic<Interface*>& Replacement() {
    static std::atomic<Interface*> replacement{nullptr};
    return replacement;
  }
};

}  // namespace tolven::platform
