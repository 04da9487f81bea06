// What a user does in one of the folders, and which contents that makes and ends.
#pragma once

#include <filesystem>
#include <string>

#include "chaos/ledger.h"
#include "chaos/plan.h"

namespace tolven::test {

class User {
 public:
  // `aside` is a folder outside of any root, on the same volume.
  User(std::string name, std::string root, std::string aside, Ledger& ledger);

  // The folder has another name by now.
  void Follow(const std::string& root) { root_ = root; }
  const std::string& root() const { return root_; }
  // What came of the operation, for the trace.
  std::string Do(const Operation& planned);

 private:
  // The operation itself, or the same on another object where there is none at its path.
  Operation Resolve(const Operation& operation) const;
  std::string Apply(const Operation& operation);
  std::string Write(const Operation& operation, bool keep_size, bool slowly);
  std::string Save(const Operation& operation);
  std::string Touch(const Operation& operation);
  std::string Remove(const std::string& path);
  std::string Rename(const Operation& operation);
  std::string ChangeKind(const Operation& operation);
  std::string Tidy();
  bool Create(const std::string& path, const std::string& content);
  bool MakeParents(const std::string& path) const;
  // Whether a name below the root, this one for preference, leads to the object.
  bool IsReachable(const std::string& path, std::uint64_t file_id) const;
  std::string Full(const std::string& path) const { return root_ + "/" + path; }
  std::string Where(const std::string& path) const { return name_ + ":" + path; }

  const std::string name_;
  std::string root_;
  const std::string aside_;
  Ledger& ledger_;
  int saved_ = 0;
};

}  // namespace tolven::test
