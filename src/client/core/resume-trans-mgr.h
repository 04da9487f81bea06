// What a broken transfer needs so that the next attempt at the same path goes on where it ended:
// the request and the answer as far as it came, with the temporary files that they name. In memory
// only; after a restart the clean-up of the working directory takes the files.
//
// All operations may be called from any thread. Failures are logged as "worker_debug".
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>

#include "lib/file-op.h"
#include "platform/mutex.h"
#include "protocol/object.h"
#include "ustring/ustring.h"

namespace tolven {

class ResumeTransMgr {
 public:
  struct CachedJob {
    // Removes the files that the job owns, and empties it.
    void Clear();
    // Removes the received files that `object` names and empties it. What lies outside the working
    // directory is the user's own and stays, but for the file of `mac_attribute`.
    void ClearPObject(PObject& object) const;
    void ClearUploadSignFile();

    ustring token;             // the key
    ustring working_dir;       // of the session
    ustring upload_sign_file;  // an upload's signature file; empty for a download
    std::int64_t create_time = 0;
    PObject cached_req;   // as sent
    PObject cached_resp;  // as far as it came
    FILE_INFO source{};   // an upload's file when it was read
  };

  static ResumeTransMgr& GetInstance();
  // `type` is "Download" or "Upload": a path can have one job in each direction.
  static ustring GenToken(std::uint64_t sess_id, const ustring& full_path, const ustring& type);
  static void InitialCachedJob(const ustring& token, const ustring& upload_sign_file,
                               const ustring& working_dir, const PObject& req, const PObject& resp,
                               CachedJob& job);

  explicit ResumeTransMgr(std::size_t max_jobs) : max_size(max_jobs) {}
  ResumeTransMgr(const ResumeTransMgr&) = delete;
  ResumeTransMgr& operator=(const ResumeTransMgr&) = delete;

  // -1 when the token is there; the old job stays. When there is no place the oldest job goes, with
  // its files; unless it is younger than two minutes: then the new one is not kept, which is 0 as
  // well, so that a storm of failures does not push out fresh jobs. HasToken tells whether it was
  // kept; the files of one that was not stay with the caller.
  int Push(const CachedJob& job) EXCLUDES(m_lock);
  // The job leaves with its files, which are the caller's now: 0, or -1 and `job` as it was.
  int Take(const ustring& token, CachedJob& job) EXCLUDES(m_lock);
  bool HasToken(const ustring& token) const EXCLUDES(m_lock);
  // Drop a job, or all, with their files.
  void Erase(const ustring& token) EXCLUDES(m_lock);
  void Clear() EXCLUDES(m_lock);
  bool IsEmpty() const { return Size() == 0; }
  std::size_t Size() const EXCLUDES(m_lock);
  // Logs every job, oldest first.
  void Print() const EXCLUDES(m_lock);

 private:
  using Queue = std::list<CachedJob>;

  const std::size_t max_size;
  mutable Mutex m_lock;
  Queue queue GUARDED_BY(m_lock);  // oldest first
  std::unordered_map<ustring, Queue::iterator> cache_map GUARDED_BY(m_lock);
};

}  // namespace tolven
