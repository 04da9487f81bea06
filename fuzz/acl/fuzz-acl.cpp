// Any bytes as the lists of an object and of the folders above it, one a line: a list that was read
// reads the same after it was written, and a denial to everyone lets nobody in.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "acl/acl-api.h"

namespace {

using tolven::ACL_API::ACL;
using tolven::ACL_API::ACLRule;

void CheckText(const std::string& text) {
  ACLRule rule, again;
  rule.set(text);
  const std::string written = rule.get();
  again.set(written);
  if (again.get() != written) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  ACL acl;
  int level = 0;
  for (std::size_t begin = 0; begin <= input.size() && level < 8; ++level) {
    const std::size_t end = std::min(input.find('\n', begin), input.size());
    ACL::Privilege privilege;
    privilege.acl = input.substr(begin, end - begin);
    privilege.level = level;
    privilege.is_dir = level > 0;
    privilege.unix_perm.unix_mode = 0x755;
    CheckText(privilege.acl);
    acl.AddPrivilege(privilege);
    begin = end + 1;
  }
  const ACL::UserInfo user{1, {2, 3}};
  acl.IsReadable(user);
  acl.IsWritable(user);
  acl.IsAccessible(user, 0);
  acl.ToString();
  ACL::Privilege closed;
  closed.acl = "1 24 1 8 0 8191 0 0 0 ";
  acl.UpdateLevelInfo(0, closed);
  if (acl.IsReadable(user) || acl.IsWritable(user) || acl.IsAccessible(user, 0)) std::abort();
  return 0;
}
