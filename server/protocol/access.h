// What a user may do with an object of a view. Access lists count from the topmost object that has
// one down: above it, and in views without any, everybody may do everything. An object without a
// list of its own takes what the folders above pass down. Administrators may do everything.
//
// For the checks of one command: each folder is read once, however many objects are below it.
#pragma once

#include <map>
#include <string>

#include "acl/acl-api.h"
#include "server/protocol/command.h"

namespace tolven::server {

class Access {
 public:
  // With `past`, objects that are gone still count, with the lists that they had.
  explicit Access(Command& command, bool past = false) : command_(command), past_(past) {}

  // Of an object that is there or, with `is_dir`, of one that would be made. False also when the
  // store fails.
  bool CanSee(const std::string& path, bool is_dir = true);
  bool CanRead(const std::string& path, bool is_dir);
  bool CanWrite(const std::string& path, bool is_dir);
  // Whether an object may go, a folder with all below it: nobody removes with a folder what could
  // not be removed by itself. 1, 0, or -1 when the store fails.
  int CanRemove(const Node& node);

 private:
  enum class Chain { kFree, kRuled, kFailed };

  // The object, or one that is about to be made; negative when the store fails.
  int FindObject(const std::string& path, bool is_dir);
  int Find(const std::string& path, bool is_dir, Node& node);
  // A folder above an object, null when the store fails.
  const Node* FindFolder(const std::string& path);
  // The lists from the object up, as far as they count.
  Chain Collect(const std::string& path, bool is_dir, ACL_API::ACL& chain);
  template <class Test>
  bool Allowed(const std::string& path, bool is_dir, Test test);

  Command& command_;
  const bool past_;
  std::map<std::string, Node> folders_;
  Node object_;  // the last one that was asked about; without a path before
};

}  // namespace tolven::server
