// Contents as files in one folder, "ab/cdef...": named by their SHA-256, so that one that is stored
// twice is there once. A file comes in by a rename, after its bytes are on the disk.
#pragma once

#include <functional>
#include <string>

#include "server/store/content-store.h"
#include "ustring/ustring.h"

namespace tolven::server {

class FileContentStore : public ContentStore {
 public:
  // The folder lies on the volume of the files that come in.
  explicit FileContentStore(ustring folder);

  int Open();  // makes the folder: 0 or -1

  ustring PathOf(const std::string& sha256) override;
  int Add(const ustring& file, const std::string& md4, Content& content) override;

  // Whether a content's bytes are what its name says: 1, 0 for wrong or missing ones, -1.
  int Verify(const Content& content);
  // Calls `use` with the SHA-256 of each content that lies here. 0 or -1.
  int List(const std::function<void(const std::string& sha256)>& use);

 private:
  const ustring folder_;
};

}  // namespace tolven::server
