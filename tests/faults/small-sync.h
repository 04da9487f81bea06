// A small sync that is always the same: a folder with changes of its user, a view with changes of
// somebody else, and what both have to come to.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "e2e/server-process.h"
#include "faults/engine.h"
#include "support/temp-folder.h"

namespace tolven::test {

class SmallSync {
 public:
  // Makes folder, database and view as they are before the sync.
  explicit SmallSync(Engine& engine);

  // A copy of them, to be synced.
  class Run {
   public:
    explicit Run(const SmallSync& sync);

    Peer peer() const { return {server_.port, server_.token}; }
    const Place& place() const { return place_; }
    // Where folder, records and view differ from what they have to come to; empty when it is done.
    std::vector<std::string> Differences() const;
    // Temporary files.
    std::vector<std::string> LeftOvers() const;

   private:
    // What is at a path: "<dir>" or the content's hash, with the number of its version.
    using Listing = std::map<std::string, std::string>;
    Listing View() const;
    Listing Records() const;

    TempFolder folder_;
    const Place place_;
    ServerProcess server_;
  };

 private:
  TempFolder folder_;
  ServerProcess::Saved server_;
  Place place_;
};

}  // namespace tolven::test
