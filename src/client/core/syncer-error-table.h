// What the syncer makes of refusals and failures.
#pragma once

namespace tolven {

struct SyncerErrors {
  enum Action : int { ACTION_DONE = 0, ACTION_RETRY = 1, ACTION_RETRY_LONG_WAIT = 2 };
  enum ErrorType { ERR_NONE = 0, ERR_SESSION = 1, ERR_CONNECTION = 2 };  // who is told

  struct _error_handler {
    int action;  // an Action, or -1: there is none for this error
    ErrorType err_type;
  };

  // For a code of the error table, 0 to -33.
  static _error_handler Find(int code);
};

}  // namespace tolven
