// Goes through a folder and, when asked, all below it: a folder's entries in the order in which the
// system gives them, then each of its folders in turn. Links are told like everything else and
// never followed; the working directory is passed over at every depth.
//
// Used by one thread.
#pragma once

#include <atomic>
#include <functional>
#include <vector>

#include "lib/file-op.h"
#include "ustring/ustring.h"

namespace tolven {

class FolderWalk {
 public:
  // False ends the walk.
  using Visit = std::function<bool(const DIR_ENTRY& entry, const ustring& path)>;
  using Passes = std::function<bool(const ustring& path)>;

  struct Options {
    bool recursive = false;
    bool with_info = false;         // times and sizes, too
    bool coarse_times = false;      // bit 0 of each time is cleared
    bool skips_unreadable = false;  // else they make the result -1
    bool sees_all = false;          // the working directories, too
    // A file where a folder is to be is like no folder; else the result is -1.
    bool takes_file_for_none = false;
    Passes enters;  // asked for each folder, the first one too; none: all are
    const std::atomic<int>* abort_flag = nullptr;
  };

  FolderWalk(Options options, Visit visit);

  // 0: all was seen, or `visit` ended it; a folder that does not exist has nothing in it. -1:
  // aborted, or something could not be read.
  int Run(const ustring& root);

 private:
  int ReadFolder(const ustring& path);
  int OnError(const ustring& path) const;
  bool Take(DIR_ENTRY& entry, const ustring& folder);

  const Options options_;
  const Visit visit_;
  std::vector<ustring> pending_;
  bool ended_ = false;
};

}  // namespace tolven
