// Tells the server of a removal that was made here, for what the server is known to hold. A change
// that somebody else made on the server wins.
#pragma once

#include <cstdint>

#include "client/core/event-context.h"
#include "client/core/event-handler.h"
#include "client/core/file.h"
#include "client/db-file-info.h"

namespace tolven {

class RemoveRemoteHandler : public EventHandler {
 public:
  int Handle() override;
  bool FilterEvent() override;

 private:
  int Apply();
  int TestRemoveRemoteFilter();
  int HandleFilteredEvent(int filter_type);
  bool IsFakeRemoveRemoteEvent();
  bool IsEventTypeMatched(const File& local_file);
  // Whether what is below is known well enough; `max_id` becomes the number that is.
  bool IsRemovalInformed(const DBFileInfo& db_info, std::uint64_t& max_id);
  int SendRemoveRequest(const DBFileInfo& db_info, std::uint64_t max_id);
  int HandleRemoveResponseError(std::uint32_t code, const DBFileInfo& db_info);
  int OnModified(const DBFileInfo& db_info);
  int OnRefused(const DBFileInfo& db_info);

  bool is_removed_ = false;  // the server holds it no longer
  bool is_guess_ = false;    // a lower number was sent than the record's
};

}  // namespace tolven
