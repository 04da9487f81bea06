// The rules that the path of an event has to pass in a handler, and the size of its file, each told
// in the handler's name when it does not. A block by the process's own rules is not remembered; one
// by the rules of a session or of its server is, so that the event comes back when they change.
#pragma once

#include <cstdint>

#include "client/core/event-context.h"

namespace tolven {

class FilterGate {
 public:
  // `source` stands in front of the log lines. Both have to live as long as the gate.
  FilterGate(const EventContext& context, const char* source);

  // 0 when what was asked may take part; otherwise what holds it back, for CanBeRemembered.
  // TestPath may also give FilterHelper::kNotLookedAt.
  int TestPath() const;
  int TestSize(std::uint64_t size) const;
  // A block by the process's own rules, of the code that the rule gave.
  static int BlockBySystem(int filter_type);
  // Whether the event is to be parked until the rules change.
  bool CanBeRemembered(int filter_type) const;

 private:
  const char* Source() const { return source_; }
  int BlockedBySystem(int filter_type) const;
  int BlockedBySession(int filter_type) const;

  const EventContext& context_;
  const char* const source_;
};

}  // namespace tolven
