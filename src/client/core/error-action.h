#pragma once

namespace tolven {

// What becomes of an event after its handler has returned.
enum ErrorAction {
  ACTION_DEFAULT = 0,       // the worker decides by the handler's result
  ACTION_DONE = 1,          // it is finished
  ACTION_RETRY = 2,         // the same worker does it again soon
  ACTION_RETURN_EVENT = 3,  // back into the queue
};

}  // namespace tolven
