// The server's filter profiles of one session. A path passes when no profile refuses it. Copies
// share the profiles; a set that several threads read is not changed any more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "lib/profile.h"
#include "lib/shared-pointer.h"
#include "ustring/ustring.h"

namespace tolven {

class ProfileSet {
 public:
  void Add(shared_pointer<Profile> profile);

  // The code of the first profile that refuses, else 0.
  int TestFilePath(const ustring& path) const;
  int TestDirectoryPath(const ustring& path) const;
  int TestFileSize(std::uint64_t size) const;
  int TestFullPathSize(std::uint64_t size) const;

  std::size_t size() const { return _profiles.size(); }
  const shared_pointer<Profile>& operator[](std::size_t index) const { return _profiles[index]; }

  // Tells the server which profiles the client holds, whatever their order: the MD5 texts of all,
  // sorted and joined. Empty for no profiles.
  ustring GetHash() const;

 private:
  std::vector<shared_pointer<Profile>> _profiles;
};

}  // namespace tolven
