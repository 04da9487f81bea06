// Once the user's rights on a path are known anew: brings back the uploads that were held back for
// want of them.
#pragma once

#include "client/core/error-callback.h"
#include "ustring/ustring.h"

namespace tolven {

class ReloadLocalACLFilteredEventCallback : public ErrorCallback {
 public:
  // Which of them: see the options of FileEventDB::getLocalFilteredEvent.
  void SetReloadAttribute(int flag) { reload_flag = flag; }
  void SetReloadPath(const ustring& path) { reload_path = path; }

  void Exec(EventContext& context) override;
  bool RunsOnlyAtEnd() const override { return true; }

 private:
  int reload_flag = 0;
  ustring reload_path;
};

}  // namespace tolven
