// The folders that must stand at the head of a page of changes.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "server/store/metadata.h"

namespace tolven::server {

// Collects, for the records of a page in their order, the folders above them that the client may
// not have yet: those whose own number is higher, so that their turn is still to come.
class Ancestors {
 public:
  // Of records below `root`, the folder that is pulled.
  Ancestors(Metadata& metadata, std::uint64_t view, std::string root)
      : metadata_(metadata), view_(view), root_(std::move(root)) {}

  // False when the store fails.
  bool AddAbove(const Node& node);
  void Add(const Node& folder) { folders_[folder.path] = {folder, true}; }
  // Parents before their children.
  std::vector<Node> Take();

 private:
  struct Folder {
    Node node;  // without a path when there is none
    bool wanted = false;
  };

  Folder* Find(const std::string& path);

  Metadata& metadata_;
  const std::uint64_t view_;
  const std::string root_;
  std::map<std::string, Folder> folders_;
};

}  // namespace tolven::server
