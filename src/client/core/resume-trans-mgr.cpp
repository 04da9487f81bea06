#include "client/core/resume-trans-mgr.h"

#include <string>
#include <string_view>
#include <utility>

#include "lib/log.h"
#include "platform/clock.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "worker_debug";
constexpr std::size_t kMaxJobs = 1024;
constexpr std::int64_t kFreshSeconds = 120;

// Whether `path` lies below `dir`, which may end in a separator. A path that climbs does not.
bool IsBelow(std::string_view path, std::string_view dir) {
  while (dir.size() > 1 && dir.back() == '/') dir.remove_suffix(1);
  if (dir.empty() || path.size() <= dir.size() + 1 || !path.starts_with(dir)) return false;
  std::string_view rest = path.substr(dir.size());
  return rest.front() == '/' && (std::string(rest) + "/").find("/../") == std::string::npos;
}

}  // namespace

void ResumeTransMgr::CachedJob::Clear() {
  ClearPObject(cached_req);
  ClearPObject(cached_resp);
  ClearUploadSignFile();
  create_time = 0;
  source = FILE_INFO();
  token.clear();
  working_dir.clear();
}

void ResumeTransMgr::CachedJob::ClearPObject(PObject& object) const {
  const PObject& named = object;
  const ustring& data = named["file"]["data"].asBinary().path;
  if (!data.empty() && IsBelow(data.view(), working_dir.view())) FSRemove(data, false);
  const ustring& mac_data = named["mac_attribute"]["data"].asBinary().path;
  if (!mac_data.empty()) FSRemove(mac_data, false);
  object.clear();
}

void ResumeTransMgr::CachedJob::ClearUploadSignFile() {
  if (!upload_sign_file.empty()) FSRemove(upload_sign_file, false);
  upload_sign_file.clear();
}

ResumeTransMgr& ResumeTransMgr::GetInstance() {
  static ResumeTransMgr instance(kMaxJobs);
  return instance;
}

ustring ResumeTransMgr::GenToken(std::uint64_t sess_id, const ustring& full_path,
                                 const ustring& type) {
  return ustring(std::to_string(sess_id)) + "|" + full_path + "|" + type;
}

void ResumeTransMgr::InitialCachedJob(const ustring& token, const ustring& upload_sign_file,
                                      const ustring& working_dir, const PObject& req,
                                      const PObject& resp, CachedJob& job) {
  job = {token, working_dir, upload_sign_file, platform::clock().WallSeconds(), req, resp, {}};
}

int ResumeTransMgr::Push(const CachedJob& job) {
  MutexLock lock(m_lock);
  if (cache_map.contains(job.token)) {
    Logger::LogMsg(Logger::L_CRIT, kCategory,
                   L"[CRIT] resume-trans-mgr(%d): collision of token %s\n", __LINE__, job.token);
    return -1;
  }
  if (queue.size() >= max_size) {
    CachedJob& oldest = queue.front();
    if (platform::clock().WallSeconds() - oldest.create_time <= kFreshSeconds) return 0;
    cache_map.erase(oldest.token);
    oldest.Clear();
    queue.pop_front();
  }
  cache_map[job.token] = queue.insert(queue.end(), job);
  return 0;
}

int ResumeTransMgr::Take(const ustring& token, CachedJob& job) {
  MutexLock lock(m_lock);
  const auto found = cache_map.find(token);
  if (found == cache_map.end()) return -1;
  job = std::move(*found->second);
  queue.erase(found->second);
  cache_map.erase(found);
  return 0;
}

bool ResumeTransMgr::HasToken(const ustring& token) const {
  MutexLock lock(m_lock);
  return cache_map.contains(token);
}

void ResumeTransMgr::Erase(const ustring& token) {
  MutexLock lock(m_lock);
  const auto found = cache_map.find(token);
  if (found == cache_map.end()) return;
  found->second->Clear();
  queue.erase(found->second);
  cache_map.erase(found);
}

void ResumeTransMgr::Clear() {
  MutexLock lock(m_lock);
  for (CachedJob& job : queue) job.Clear();
  cache_map.clear();
  queue.clear();
}

std::size_t ResumeTransMgr::Size() const {
  MutexLock lock(m_lock);
  return queue.size();
}

void ResumeTransMgr::Print() const {
  MutexLock lock(m_lock);
  for (const CachedJob& job : queue) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] resume-trans-mgr(%d): token %s, created %lld, signature %s\n",
                   __LINE__, job.token, job.create_time, job.upload_sign_file);
  }
}

}  // namespace tolven
