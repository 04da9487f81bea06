// Takes a removal that the server told, of a folder with newer content, apart into removals of the
// members that are no newer.
#pragma once

#include "client/core/event-context.h"
#include "client/core/event-handler.h"

namespace tolven {

class ExpandServerDeleteHandler : public EventHandler {
 public:
  int Handle() override;
  bool FilterEvent() override;

 private:
  int ForgetFolder();
};

}  // namespace tolven
