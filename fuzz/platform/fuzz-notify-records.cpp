// Whatever the bytes are, every record that comes out has a name that is text.
#include <cstdint>
#include <cstdlib>

#include "platform/notify-records.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<tolven::platform::WatchRecord> records;
  (void)tolven::platform::DecodeNotifyRecords(data, size, records);
  // A record takes twelve bytes and more.
  if (records.size() > size / 12) std::abort();
  for (const auto& record : records) {
    if (!tolven::ustring::is_valid(record.name)) std::abort();
  }
  return 0;
}
