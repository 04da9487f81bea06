// Rows of nodes and versions as Node, and the steps that changes are made of. For the thread that
// has the database.
#pragma once

#include <cstdint>
#include <string>

#include "server/store/database.h"
#include "server/store/metadata.h"

namespace tolven::server {

// Columns of `nodes` joined with `contents`, for ReadNode.
inline constexpr char kNodeColumns[] =
    " n.path, n.is_dir, n.is_removed, n.sync_id, n.max_id, n.mtime, n.exec_bit, n.uid, n.gid, "
    "n.mode, n.acl, c.id, c.size, c.md4, c.sha256 FROM nodes n LEFT JOIN contents c ON c.id = "
    "n.content_id ";

Node ReadNode(Query& row);
// 1, 0 or -1.
int FindNodeRow(Database& db, std::uint64_t view, const std::string& path, Node& node);

// The range of paths below a folder: behind `first`, in front of `end`.
std::string FirstBelow(const std::string& folder);
std::string EndBelow(const std::string& folder);
// Bytes of the files at and below a path. False when it fails.
bool BytesAt(Database& db, std::uint64_t view, const std::string& path, std::uint64_t& bytes);
// The highest number of what is at and below a path. False when it fails.
bool NewestAt(Database& db, std::uint64_t view, const std::string& path, std::uint64_t& number);
// "/" for a first-level path; empty for "/".
std::string ParentOf(const std::string& path);

// One change of a view: draws numbers, writes nodes, and keeps counts and folders right.
class NodeWriter {
 public:
  NodeWriter(Database& db, std::uint64_t view, unsigned versions)
      : db_(db), view_(view), versions_(versions) {}

  // Gives the node a new number and stores it as the last version of its path. The node that it
  // replaces, if any, tells what the view no longer holds. A folder in the place of something else
  // tells anew what went with a folder that was there before it: who has missed that one's removal
  // would never hear of it.
  bool Store(Node& node, const Node* replaced);
  // Removes all that is below a folder; the folder's own removal tells it to the clients.
  bool RemoveBelow(const std::string& folder);
  // Makes the folders above a path that are missing. False with kConflict in `outcome` when one is
  // a file.
  bool MakeParents(const std::string& path, std::uint32_t uid, Outcome& outcome);

 private:
  bool NextNumber(std::uint64_t& number);
  bool TellRemovedBelow(Node& folder);
  bool StoreContent(Content& content);
  bool StoreVersion(const Node& node);
  bool RaiseFolders(const std::string& path, std::uint64_t number);
  bool AddUsed(std::int64_t bytes);

  Database& db_;
  const std::uint64_t view_;
  const unsigned versions_;
};

}  // namespace tolven::server
