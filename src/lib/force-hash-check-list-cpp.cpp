#include "lib/force-hash-check-list-cpp.h"

#include <utility>

namespace tolven {

int ForceHashCheckListCpp::Load(const ustring& path) {
  ForceHashCheckList content;
  const int result = _force_hash_check_list_read(&content, path);
  MutexLock hold(lock);
  std::swap(list, content);
  return result;
}

void ForceHashCheckListCpp::Clear() {
  MutexLock hold(lock);
  _force_hash_check_list_destroy(&list);
}

int ForceHashCheckListCpp::Test(const ustring& name) const {
  MutexLock hold(lock);
  return _force_hash_extension_test(&list, name.c_str_utf8());
}

}  // namespace tolven
