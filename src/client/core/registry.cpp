#include "client/core/registry.h"

#include <memory>
#include <optional>
#include <utility>

#include "lib/profile-set.h"

namespace tolven {

Registry::Entry::Entry() : server_black_lists(std::make_shared<ProfileSet>()) {}

void Registry::Entry::clear() { *this = Entry(); }

Registry& Registry::getInstance() {
  static Registry registry;
  return registry;
}

int Registry::Find(std::uint64_t sess_id, Entry& out) const {
  // What `out` held may be the last pointer to a database, which is not to be closed under the
  // lock.
  std::optional<Entry> copy;
  {
    const MutexLock lock(mutex);
    const auto found = index.find(sess_id);
    if (found == index.end()) return 0;
    copy.emplace(found->second);
  }
  out = std::move(*copy);
  return 1;
}

int Registry::FindNext(std::uint64_t sess_id, Entry& out) const {
  std::optional<Entry> copy;
  {
    const MutexLock lock(mutex);
    if (index.empty()) return 0;
    auto next = index.find(sess_id);
    if (next != index.end()) ++next;
    if (next == index.end()) next = index.begin();
    copy.emplace(next->second);
  }
  out = std::move(*copy);
  return 1;
}

void Registry::GetAll(std::vector<Entry>& out) const {
  const MutexLock lock(mutex);
  out.reserve(out.size() + index.size());
  for (const auto& [id, entry] : index) out.push_back(entry);
}

std::size_t Registry::Size() const {
  const MutexLock lock(mutex);
  return index.size();
}

void Registry::Set(const Entry& entry) {
  Entry added = entry;
  if (added.server_black_lists == nullptr) added.server_black_lists = Entry().server_black_lists;
  const MutexLock lock(mutex);
  added.generation = ++last_generation;
  const auto [place, is_new] = index.try_emplace(added.sess_id);
  // The recycle bin belongs to the folder and is still there.
  if (!is_new) added.recycle_time = place->second.recycle_time;
  std::swap(place->second, added);
}

void Registry::Remove(std::uint64_t sess_id) {
  std::map<std::uint64_t, Entry>::node_type removed;
  const MutexLock lock(mutex);
  removed = index.extract(sess_id);
}

void Registry::Clear() {
  std::map<std::uint64_t, Entry> removed;
  const MutexLock lock(mutex);
  removed.swap(index);
}

template <class T>
void Registry::SetField(std::uint64_t sess_id, T Entry::*field, T value) {
  const MutexLock lock(mutex);
  const auto found = index.find(sess_id);
  // The old value goes with the parameter.
  if (found != index.end()) std::swap(found->second.*field, value);
}

void Registry::SetPause(std::uint64_t sess_id, bool pause) {
  SetField(sess_id, &Entry::pause, pause);
}

void Registry::SetReadOnly(std::uint64_t sess_id, bool read_only) {
  SetField(sess_id, &Entry::read_only, read_only);
}

void Registry::SetRecursive(std::uint64_t sess_id, bool recursive) {
  SetField(sess_id, &Entry::recursive, recursive);
}

void Registry::SetPermMode(std::uint64_t sess_id, PermissionMode mode) {
  SetField(sess_id, &Entry::perm_mode, mode);
}

void Registry::SetServerBlackLists(std::uint64_t sess_id, shared_pointer<ProfileSet> set) {
  if (set == nullptr) set = std::make_shared<ProfileSet>();
  SetField(sess_id, &Entry::server_black_lists, std::move(set));
}

void Registry::SetBlackList(std::uint64_t sess_id, shared_pointer<BlackList2> list) {
  SetField(sess_id, &Entry::black_list, std::move(list));
}

void Registry::SetWhiteList(std::uint64_t sess_id, shared_pointer<WhiteListCpp> list) {
  SetField(sess_id, &Entry::white_list, std::move(list));
}

void Registry::SetForceHashCheckList(std::uint64_t sess_id,
                                     shared_pointer<ForceHashCheckListCpp> list) {
  SetField(sess_id, &Entry::force_hash_check_list, std::move(list));
}

void Registry::InitRecycleTime(const Entry& entry, std::uint32_t t) {
  const MutexLock lock(mutex);
  const auto found = index.find(entry.sess_id);
  if (found == index.end()) return;
  std::uint32_t& stored = found->second.recycle_time;
  if (stored == 0 || stored > t) stored = t;
}

void Registry::UpdateRecycleTime(const Entry& entry, std::uint32_t t) {
  SetField(entry.sess_id, &Entry::recycle_time, t);
}

}  // namespace tolven
