// event_db_writer FOLDER FIRST CALL: writes records to FOLDER/event.sqlite, numbered from FIRST,
// and ends in the middle of the CALL-th call to the disk as a killed process does.
#include <cstdlib>
#include <string>

#include "client/file-event-db.h"
#include "platform/forwarding-files.h"
#include "support/faulty-vfs.h"
#include "support/temp-folder.h"

int main(int argc, char** argv) {
  using namespace tolven;
  if (argc != 4) return 2;
  const std::string folder = argv[1];
  unsigned long left = std::strtoul(argv[3], nullptr, 10);
  const platform::CallHook die = [&left](const char*) {
    if (--left == 0) std::_Exit(9);
    return platform::Status{};
  };
  platform::ForwardingFiles files(platform::files(), die);
  platform::SetFiles(&files);
  const test::FaultyVfs vfs(die);

  FileEventDB db;
  if (db.initialize(folder + "/event.sqlite") != 0) return 1;
  for (auto i = std::strtoul(argv[2], nullptr, 10);; ++i) {
    DBFileInfo info;
    info.path = "/d" + std::to_string(i % 7) + "/s/f" + std::to_string(i % 5);
    info.syncID = info.maxSyncID = info.fileSize = i;
    info.fileCheckSum = std::to_string(i);
    info.signaturePath = folder + "/new-signature";
    test::WriteFile(info.signaturePath, std::to_string(i));
    FilteredEvent parked;
    parked.path = info.path;
    parked.sync_id = i;
    bool good = db.setLocalFilteredEvent(parked) == 0;
    good = good && db.setEventInfo(info) == 0 && db.setSyncId(i) == 0;
    if (i % 5 == 4) good = good && db.dumpDirToRecycleBin("/d3", "/bin" + std::to_string(i)) == 0;
    if (i % 9 == 8) good = good && db.commitRemove("/d5/s") == 0;
    if (!good) return 1;
  }
}
