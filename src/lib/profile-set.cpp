#include "lib/profile-set.h"

#include <algorithm>
#include <string>
#include <utility>

namespace tolven {

namespace {

template <class Test>
int FirstRefusal(const std::vector<shared_pointer<Profile>>& profiles, Test test) {
  int result = 0;
  for (const shared_pointer<Profile>& profile : profiles) {
    result = test(*profile);
    if (result < 0) break;
  }
  return result;
}

}  // namespace

void ProfileSet::Add(shared_pointer<Profile> profile) { _profiles.push_back(std::move(profile)); }

int ProfileSet::TestFilePath(const ustring& path) const {
  return FirstRefusal(_profiles, [&path](const Profile& p) { return p.TestFilePath(path); });
}

int ProfileSet::TestDirectoryPath(const ustring& path) const {
  return FirstRefusal(_profiles, [&path](const Profile& p) { return p.TestDirectoryPath(path); });
}

int ProfileSet::TestFileSize(std::uint64_t size) const {
  return FirstRefusal(_profiles, [size](const Profile& p) { return p.TestFileSize(size); });
}

int ProfileSet::TestFullPathSize(std::uint64_t size) const {
  return FirstRefusal(_profiles, [size](const Profile& p) { return p.TestFullPathSize(size); });
}

ustring ProfileSet::GetHash() const {
  std::vector<std::string> sums;
  for (const shared_pointer<Profile>& profile : _profiles) sums.push_back(profile->GetMd5().str());
  std::sort(sums.begin(), sums.end());
  std::string hash;
  for (const std::string& sum : sums) hash += sum;
  return ustring(hash);
}

}  // namespace tolven
