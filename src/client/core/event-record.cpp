#include "client/core/event-record.h"

#include "client/core/event-generator.h"

namespace tolven {

void EventRecord::Push() const {
  switch (type) {
    case UPLOAD_LOCAL:
      PushUploadEvent(*entry, path, is_dir);
      break;
    case REMOVE_REMOTE:
      PushLocalRemoveEvent(*entry, path, is_dir);
      break;
    case DOWNLOAD_REMOTE:
      PushDownloadEvent(*entry, path, is_dir);
      break;
  }
}

}  // namespace tolven
