#include "lib/black-list2.h"

#include <utility>

#include "filter/fold.h"

namespace tolven {

namespace {

int InsertNew(value_type_string_set& values, const ustring& value) {
  if (!BlackList2::StringSetValueExist(values, value)) {
    _vt_string_set_insert(&values, value.view());
  }
  return 0;
}

int Assign(value_type_string& field, const ustring& value) {
  _vt_string_assign(&field, value.view());
  return 0;
}

int Remove(value_type_string_set& values, const ustring& value) {
  _vt_string_set_remove(&values, value.view());
  return 0;
}

const char* PathText(const ustring& path) { return path.empty() ? "/" : path.c_str_utf8(); }

// The set that a key selects; null when the section has none for it.
template <class Section>
value_type_string_set* CommonSetOf(Section& section, BlackList2::FilterKey key) {
  switch (key) {
    case BlackList2::FILTER_KEY_PREFIX:
      return &section.black_prefix;
    case BlackList2::FILTER_KEY_SUFFIX:
      return &section.black_suffix;
    case BlackList2::FILTER_KEY_NAME:
      return &section.black_name;
    default:
      return nullptr;
  }
}
value_type_string_set* SetOf(CommonSection& section, BlackList2::FilterKey key) {
  return key == BlackList2::FILTER_KEY_PATH ? &section.black_dir_prefix : CommonSetOf(section, key);
}
value_type_string_set* SetOf(FileSection& section, BlackList2::FilterKey key) {
  if (key == BlackList2::FILTER_KEY_EXT) return &section.black_ext;
  return key == BlackList2::FILTER_KEY_GLOB ? &section.black_glob : CommonSetOf(section, key);
}
value_type_string_set* SetOf(DirectorySection& section, BlackList2::FilterKey key) {
  return CommonSetOf(section, key);
}

template <class Section>
int InsertText(Section& section, BlackList2::FilterKey key, const ustring& value) {
  if (key == BlackList2::FILTER_KEY_CHAR) return Assign(section.black_char, value);
  value_type_string_set* const values = SetOf(section, key);
  return values == nullptr ? -1 : InsertNew(*values, value);
}

template <class Section>
int RemoveText(Section& section, BlackList2::FilterKey key, const ustring& value) {
  value_type_string_set* const values = SetOf(section, key);
  return values == nullptr ? -1 : Remove(*values, value);
}

}  // namespace

BlackList2& BlackList2::getInstance() {
  static BlackList2 instance;
  return instance;
}

BlackList2::BlackList2(const BlackList2& other) { Replace(other.Copy()); }

BlackList2& BlackList2::operator=(const BlackList2& other) {
  // One mutex at a time, so that two lists may be assigned to each other at once.
  if (this != &other) Replace(other.Copy());
  return *this;
}

int BlackList2::Load(const ustring& path) {
  Filter content;
  const int result = _filter_read(&content, path);
  Replace(std::move(content));
  return result;
}

int BlackList2::Write(const ustring& path) const {
  MutexLock hold(mutex);
  return _filter_write(&filter, path);
}

void BlackList2::Clear() { Replace(Filter()); }
void BlackList2::Destroy() { Replace(Filter()); }

int BlackList2::TestFilePath(const ustring& path) const {
  MutexLock hold(mutex);
  return _filter_test_path(&filter, false, PathText(path));
}

int BlackList2::TestDirectoryPath(const ustring& path) const {
  MutexLock hold(mutex);
  return _filter_test_path(&filter, true, PathText(path));
}

int BlackList2::TestFileSize(std::uint64_t size) const {
  MutexLock hold(mutex);
  return _filter_test_file_size(&filter, size);
}

int BlackList2::TestFullPathSize(std::uint64_t size) const {
  MutexLock hold(mutex);
  return _filter_test_full_path_size(&filter, size);
}

Filter* BlackList2::GetFilter() NO_THREAD_SAFETY_ANALYSIS {
  mutex.lock();
  return &filter;
}

void BlackList2::ReturnFilter() NO_THREAD_SAFETY_ANALYSIS {
  PublishVersion();
  mutex.unlock();
}

int BlackList2::InsertFilter(VersionSection* section, int major, int minor) {
  section->major = major;
  section->minor = minor;
  return 0;
}

int BlackList2::InsertFilter(CommonSection* section, FilterKey key, std::uint64_t value) {
  if (key == FILTER_KEY_NAME_LEN) {
    section->max_length = value;
  } else if (key == FILTER_KEY_PATH_LEN) {
    section->max_path = value;
  } else {
    return -1;
  }
  return 0;
}

int BlackList2::InsertFilter(CommonSection* section, FilterKey key, const ustring& value) {
  return InsertText(*section, key, value);
}

int BlackList2::InsertFilter(FileSection* section, FilterKey key, std::uint64_t value) {
  if (key != FILTER_KEY_FILE_SIZE) return -1;
  section->max_size = value;
  return 0;
}

int BlackList2::InsertFilter(FileSection* section, FilterKey key, const ustring& value) {
  return InsertText(*section, key, value);
}

int BlackList2::InsertFilter(DirectorySection* section, FilterKey key, const ustring& value) {
  return InsertText(*section, key, value);
}

int BlackList2::RemoveFilter(CommonSection* section, FilterKey key, const ustring& value) {
  return RemoveText(*section, key, value);
}

int BlackList2::RemoveFilter(FileSection* section, FilterKey key, const ustring& value) {
  return RemoveText(*section, key, value);
}

bool BlackList2::StringSetValueExist(const value_type_string_set& values, const ustring& value) {
  for (const std::string& entry : values.set) {
    if (fold::Equal(entry, value.view())) return true;
  }
  return false;
}

Filter BlackList2::Copy() const {
  MutexLock hold(mutex);
  return filter;
}

void BlackList2::Replace(Filter&& content) {
  // The old rules are released after the mutex.
  MutexLock hold(mutex);
  std::swap(filter, content);
  PublishVersion();
}

void BlackList2::PublishVersion() {
  major_ = filter.Version.major;
  minor_ = filter.Version.minor;
}

}  // namespace tolven
