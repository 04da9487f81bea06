// Judges what two folders, their databases and the view came to.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "chaos/ledger.h"
#include "e2e/client-process.h"
#include "e2e/server-process.h"

namespace tolven::test {

// An object in a folder, in the view, or as a row remembers it.
struct Seen {
  bool is_dir = false;
  std::uint64_t size = 0;
  std::string md4;
  std::int64_t mtime = 0;    // seconds; 0 for folders
  std::uint64_t number = 0;  // of its version; 0 on disk
};
using Listing = std::map<std::string, Seen>;  // by path, "/a/b"

class Oracle {
 public:
  explicit Oracle(const ServerProcess& server) : server_(server) {}

  static Listing Folder(const std::string& root);
  // Where two states of a folder differ.
  static std::vector<std::string> Changes(const Listing& before, const Listing& after,
                                          const std::string& what);
  // Where folder, rows and view differ; empty when they agree. Never writes anything.
  std::vector<std::string> Differences(const ClientProcess& client, const std::string& name) const;
  // What is left of transfers that are over; in the root only when it `was_there` all the time.
  std::vector<std::string> LeftOvers(const ClientProcess& client, const std::string& name,
                                     bool was_there) const;
  // All contents in the folders, their recycle bins and the server's store.
  std::set<Fingerprint> Contents(const std::vector<std::string>& roots);

 private:
  // A query of the server's metadata.
  void Query(const char* sql, const std::function<void(sqlite3_stmt*)>& each) const;
  Listing View() const;

  const ServerProcess& server_;
  std::set<std::string> stored_;  // files of the store that were read; they never change
  std::set<Fingerprint> in_store_;
};

}  // namespace tolven::test
