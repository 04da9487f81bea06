// Any bytes as a record of a server: refused, or an event that stays within the session.

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "client/core/event-generator.h"
#include "client/core/server-record.h"
#include "client/file-event-db.h"
#include "protocol/stream.h"
#include "support/memory-channel.h"
#include "support/temp-folder.h"

namespace {

void Require(bool held) {
  if (!held) std::abort();
}

tolven::Registry::Entry MakeSession(const tolven::test::TempFolder& folder) {
  tolven::Registry::Entry entry;
  entry.local_path = folder.path();
  entry.event_db = std::make_shared<tolven::FileEventDB>();
  Require(entry.event_db->initialize(folder / "db.sqlite") == 0);
  return entry;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolven;
  static const test::TempFolder folder;
  static Registry::Entry entry = MakeSession(folder);
  test::MemoryChannel in({reinterpret_cast<const char*>(data), size});
  PStream stream;
  stream.SetLimits({10'000, 1 << 18, false});
  PObject record;
  if (stream.Recv(in, record) != PStream::ERR_OK) return 0;

  Event event;
  const bool accepted = ReadServerRecord(record, false, event) == nullptr;
  const int result = PushEvent(entry, record);
  Require(accepted ? result >= 0 && result <= 2 : result == -1);
  if (!accepted) return 0;
  const std::string& path = event.m_path.str();
  // What a path means by itself, and that no working directory is on the way.
  Require(path.front() == '/' && std::filesystem::path(path).lexically_normal() == path);
  Require((path + "/").find("/.ZentrovaWorkingDirectory/") == std::string::npos);
  Require(path != "/" || event.m_type == Event::EV_CREATE);
  Require(event.isServerEvent() && event.m_sync_id < kForcedDownload);
  return 0;
}
