// Whether a session's folder is really there. A folder that is missing, or an empty mount point in
// its place, looks as if everything in it had been removed; nobody may act on that.
//
// A root is proved while it is the directory that it was at the last proof, or when its working
// directory holds the file with the id that was written there when the session began and that the
// session's database remembers. So a folder that the user emptied is still itself.
//
// Operations may be called from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

class FileEventDB;

class RootProof {
 public:
  // `id` is what the file in the working directory has to hold.
  RootProof(std::uint64_t conn_id, std::uint64_t sess_id, ustring local_path, ustring id);

  // Looks at the folder. When the proof fails, the UI is told -29, once until it holds again; then
  // a rescan is asked for.
  bool IsProved() EXCLUDES(mutex_);
  // The same without telling anybody.
  bool LooksProved() EXCLUDES(mutex_);

  // Whether the folder is the one that `db` remembers, before a session begins in it: it has the
  // id file, or the database has never seen one. NOT_KNOWN when either could not be read.
  enum class Found { YES, NO, NEVER_SEEN, NOT_KNOWN };
  static Found Recognise(const ustring& local_path, FileEventDB& db);
  // Writes an id into the working directory, which exists, and the database: the id, or an empty
  // text when either fails. An id that the database has already is kept, and
  // a file that holds it is left alone.
  static ustring Establish(const ustring& local_path, FileEventDB& db);

 private:
  using Identity = std::pair<std::uint64_t, std::uint64_t>;  // volume and file id

  bool Look() REQUIRES(mutex_);

  const std::uint64_t conn_id_, sess_id_;
  const ustring local_path_, id_;
  Mutex mutex_;
  std::optional<Identity> proved_ GUARDED_BY(mutex_);
  bool reported_ GUARDED_BY(mutex_) = false;
};

}  // namespace tolven
