#include "server/admin/data-folder.h"

#include <iostream>

#include "lib/file-op.h"
#include "lib/utility.h"
#include "platform/files.h"

namespace tolven::server {

int DataFolder::Make() {
  // Hashes of tokens and everybody's files lie here.
  constexpr std::uint32_t kOwnerAlone = 0700;
  if (FSMKDir(path_, true) != 0 || !platform::files().SetMode(path_, kOwnerAlone).ok()) return -1;
  metadata_ = std::make_unique<SqliteMetadata>();
  contents_ = std::make_unique<FileContentStore>(path_ + "/contents");
  return metadata_->Open(MetadataPath()) == 0 && contents_->Open() == 0 ? 0 : -1;
}

int DataFolder::Open(unsigned versions) {
  if (!IsFileExist(MetadataPath(), false)) {
    std::cerr << "tolven-server: '" << path_.str()
              << "' holds no server; make one with: tolven-server init --data " << path_.str()
              << "\n";
    return -1;
  }
  metadata_ = std::make_unique<SqliteMetadata>(versions);
  contents_ = std::make_unique<FileContentStore>(path_ + "/contents");
  if (metadata_->Open(MetadataPath()) == 0 && contents_->Open() == 0) return 0;
  std::cerr << "tolven-server: '" << path_.str() << "' cannot be opened\n";
  return -1;
}

// A transaction that stays open: the system ends it with the process, however that ends.
bool DataFolder::Claim() {
  return claim_.Open(path_ + "/claim.sqlite") &&
         claim_.Execute("PRAGMA busy_timeout = 0; BEGIN IMMEDIATE;");
}

ustring DataFolder::ProfileFolder(const std::string& user) const {
  return path_ + "/profiles/" + ustring(HashMD5(ustring(user)).str());
}

}  // namespace tolven::server
