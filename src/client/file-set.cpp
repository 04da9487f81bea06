#include "client/file-set.h"

#include <algorithm>

namespace tolven {

namespace {

constexpr std::size_t kWithoutIndex = 8;  // so many are searched one by one

}  // namespace

bool FileSet::Contains(StringBuffer::String name) {
  if (files_.size() <= kWithoutIndex) {
    return std::any_of(files_.begin(), files_.end(),
                       [name](const FileNode& file) { return file.name.ptr == name.ptr; });
  }
  if (index_.empty()) {
    std::size_t slots = 4 * kWithoutIndex;
    while (slots < files_.size() * 2) slots *= 2;
    BuildIndex(slots);
  }
  return index_[FindSlot(name)] != 0;
}

bool FileSet::Add(StringBuffer::String name, const Attr& attr) {
  if (Contains(name)) return false;
  Append(name, attr);
  return true;
}

void FileSet::Append(StringBuffer::String name, const Attr& attr) {
  sorted_ = files_.empty() || (sorted_ && files_.back().name < name);
  files_.push_back({name, attr});
  if (index_.empty()) return;
  if (files_.size() > index_.size() / 4 * 3) {
    BuildIndex(index_.size() * 2);
  } else {
    index_[FindSlot(name)] = static_cast<std::uint32_t>(files_.size());
  }
}

const std::vector<FileSet::FileNode>& FileSet::Sorted() {
  if (!sorted_) {
    std::sort(files_.begin(), files_.end(),
              [](const FileNode& a, const FileNode& b) { return a.name < b.name; });
    index_ = {};
    sorted_ = true;
  }
  return files_;
}

std::size_t FileSet::FindSlot(StringBuffer::String name) const {
  const std::size_t mask = index_.size() - 1;
  // Fibonacci hashing: texts lie close together, so low bits of pointers alone would cluster.
  const std::uint64_t hash =
      static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(name.ptr)) * 0x9E3779B97F4A7C15;
  std::size_t slot = static_cast<std::size_t>(hash >> 32) & mask;
  while (index_[slot] != 0 && files_[index_[slot] - 1].name.ptr != name.ptr) {
    slot = (slot + 1) & mask;
  }
  return slot;
}

void FileSet::BuildIndex(std::size_t slots) {
  index_.assign(slots, 0);
  for (std::size_t i = 0; i < files_.size(); ++i) {
    index_[FindSlot(files_[i].name)] = static_cast<std::uint32_t>(i + 1);
  }
}

}  // namespace tolven
