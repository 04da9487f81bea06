// A temporary file that goes with its last holder. Copies share the file; they belong to one
// thread, since the count of holders is not guarded.
#pragma once

#include <memory>

#include "ustring/ustring.h"

namespace tolven {

class TempFile {
 public:
  // Folder for files of objects made without one. Set once at start-up.
  static void initialize(const ustring& prefix);

  explicit TempFile(const ustring& prefix = ustring());
  TempFile(const TempFile& other);
  ~TempFile();
  // A target that is the only holder of a file removes it first.
  TempFile& operator=(const TempFile& other);

  void setPrefix(const ustring& prefix) { tmp_prefix_ = prefix; }
  const ustring& getPath() const { return path_; }

  // Makes the file, empty and mode 0600. -1 when there is one already, or it cannot be made.
  int create();
  // Removes the file now, for all holders.
  int remove();
  // The file outlives this object.
  void convert_permanent() { permanent_ = true; }

 private:
  void Leave();  // gives up this object's share

  static ustring default_prefix;

  ustring tmp_prefix_, path_;
  std::shared_ptr<int> ref_;  // count of holders, 0 without a file
  bool permanent_ = false;
};

}  // namespace tolven
