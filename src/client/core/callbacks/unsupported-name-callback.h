// Once the event of a path that the local file system cannot hold is finished: the path's status
// tells that it is not synced.
#pragma once

#include "client/core/error-callback.h"

namespace tolven {

class UnsupportedNameCallback : public ErrorCallback {
 public:
  void Exec(EventContext& context) override;
  bool RunsOnlyAtEnd() const override { return true; }
};

}  // namespace tolven
