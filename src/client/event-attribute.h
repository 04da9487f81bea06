// The form in which the tree keeps an event. A million of them may be pending, and of their
// strings most are empty, so only what the merge looks at stands as plain fields; the rest is
// packed into one heap block: each text as a length and its bytes, then each number, all lengths
// and numbers as base-128 integers, low bits first.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "client/event.h"

namespace tolven {

// Flags of EventAttribute::mode beyond those of Event.
enum : uint32_t {
  EVENT_F_FORCE = 2048,
  // A file and a directory of one name are both pending; this one must wait.
  EVENT_F_FILE_TYPE_CONFLICT = 4096,
};

class EventAttribute {
 public:
  EventAttribute() = default;
  explicit EventAttribute(const Event& event);

  // Overwrites every field of `event`.
  void ToEvent(Event& event) const;

  bool isServer() const { return (mode & Event::F_SERVER) != 0; }
  bool isTypeConflict() const { return (mode & EVENT_F_FILE_TYPE_CONFLICT) != 0; }

  // The event's path; lives as long as this attribute is neither changed nor moved from.
  std::string_view path() const;

  // Makes type, mode and number those of no event; everything else stays readable.
  void Clear();

  Event::Type type = Event::EV_EMPTY;
  uint32_t mode = 0;
  uint64_t syncID = 0;

 private:
  std::unique_ptr<char[]> packed_;  // null: everything empty and 0
};

}  // namespace tolven
