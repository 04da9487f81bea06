// What an administrator does with a server's state, and what is printed of it. Each command returns
// the exit status of the program. While a server serves the folder, too, it sees every change.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "server/admin/data-folder.h"

namespace tolven::server {

struct AclGrant {
  int type = 0;  // ZENT_ACL_ID_TYPE
  int id = 0;
  std::string rights;  // "rw", "r" or "none"
};

class Commands {
 public:
  // `json`: one JSON value on standard output, for scripts.
  Commands(DataFolder& data, bool json) : data_(data), json_(json) {}

  int AddUser(User user);
  int NewSession(const std::string& user);
  int AddView(View view);
  // The list of an object becomes the grants, which hold for all that is below; none: no list.
  int SetAcl(const std::string& view, const std::string& path, const std::vector<AclGrant>& grants);
  int SetProfiles(const std::string& user, const std::vector<std::string>& files);
  // Users and views; or what a folder of a view holds.
  int List(const std::string& view, const std::string& path);
  // The changes of a view, or the versions of a path.
  int Log(const std::string& view, const std::string& path);
  int Restore(const std::string& view, const std::string& path, std::uint64_t version);
  // Verifies every row and every content, and removes contents that nothing has any more when
  // `sweep`. 1 when something is wrong.
  int Check(bool sweep);

 private:
  bool FindView(const std::string& name, View& view);
  int Tell(Outcome outcome, const Node& node);
  void PrintNodes(const std::vector<Node>& nodes);
  int IsSound(const Content& content);

  DataFolder& data_;
  const bool json_;
};

}  // namespace tolven::server
