#include "lib/white-list-cpp.h"

#include <utility>

namespace tolven {

int WhiteListCpp::Load(const ustring& path) {
  WhiteList content;
  const int result = _white_list_read(&content, path);
  MutexLock hold(lock);
  std::swap(list, content);
  return result;
}

void WhiteListCpp::Clear() {
  MutexLock hold(lock);
  _white_list_destroy(&list);
}

int WhiteListCpp::Test(const ustring& name) const {
  MutexLock hold(lock);
  return _white_list_test(&list, name.c_str_utf8());
}

}  // namespace tolven
