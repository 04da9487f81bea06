// Once the members of a folder have events of their own: one for the folder itself.
#pragma once

#include "client/core/error-callback.h"

namespace tolven {

class CreateDirSelfEventCallback : public ErrorCallback {
 public:
  // A local creation when the folder exists, else a removal, unless the server has changes pending
  // below. When the expanded event carried a change of the server, that one is queued again; a
  // removal only once the folder is empty.
  void Exec(EventContext& context) override;
  bool RunsOnlyAtEnd() const override { return true; }

 private:
  static void CreateDirSelfEvent(const EventContext& context);
  static void RepeatServerEvent(const EventContext& context);
};

}  // namespace tolven
