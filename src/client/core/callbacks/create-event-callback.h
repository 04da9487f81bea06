// Queues one event of the session once the event in hand is settled.
#pragma once

#include <cstdint>

#include "client/core/error-callback.h"
#include "ustring/ustring.h"

namespace tolven {

class CreateEventCallback : public ErrorCallback {
 public:
  enum EventType {
    EV_REMOTE_REMOVE = 0,
    EV_LOCAL_REMOVE = 1,
    EV_UPLOAD = 2,
    EV_DOWNLOAD = 3,
    EV_EXPAND_LOCAL_DELETE = 4,
    EV_EXPAND_SERVER_DELETE = 5,
  };

  // What to queue, by the function of event-generator.h that makes it.
  void SetServerRemoveEvent(const ustring& event_path, bool directory, std::uint64_t sync,
                            std::uint64_t max);
  void SetLocalRemoveEvent(const ustring& event_path, bool directory);
  void SetUploadEvent(const ustring& event_path, bool directory);
  void SetDownloadEvent(const ustring& event_path, bool directory);
  void SetExpandLocalDeleteEvent(const ustring& event_path, bool directory, std::uint64_t sync,
                                 std::uint64_t max);
  void SetExpandServerDeleteEvent(const ustring& event_path, bool directory, std::uint64_t sync,
                                  std::uint64_t max);

  void Exec(EventContext& context) override;

 private:
  void Set(EventType event_type, const ustring& event_path, bool directory, std::uint64_t sync,
           std::uint64_t max);

  EventType type = EV_REMOTE_REMOVE;
  ustring path;
  bool is_dir = false;
  std::uint64_t sync_id = 0;
  std::uint64_t max_id = 0;
};

}  // namespace tolven
