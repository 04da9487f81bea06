#pragma once

namespace tolven {

class EventContext;

// Work that a handler leaves behind, to be done once it is settled what becomes of its event. Runs
// on the worker's thread, each time that this is settled: a handler that leaves one with
// ACTION_RETRY finds it run before the next attempt.
class ErrorCallback {
 public:
  virtual ~ErrorCallback() = default;
  virtual void Exec(EventContext& context) = 0;
  // Whether it is to run only once the event is finished, and not before another attempt.
  virtual bool RunsOnlyAtEnd() const { return false; }
};

}  // namespace tolven
