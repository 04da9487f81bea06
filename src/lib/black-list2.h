// A filter shared by threads: one for the whole process behind getInstance(), and one in each
// session. Every operation may be called from any thread and takes the object's mutex, except
// where told otherwise.
#pragma once

#include <atomic>
#include <cstdint>

#include "filter/filter.h"
#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven {

// The object is itself what GetFilter() acquires, so that clang finds calls that would deadlock.
class CAPABILITY("filter") BlackList2 {
 public:
  // Selects a field of a section.
  enum FilterKey {
    FILTER_KEY_CHAR = 0,
    FILTER_KEY_PREFIX = 1,
    FILTER_KEY_SUFFIX = 2,
    FILTER_KEY_NAME = 3,
    FILTER_KEY_EXT = 4,
    FILTER_KEY_GLOB = 5,
    FILTER_KEY_PATH = 6,
    FILTER_KEY_NAME_LEN = 7,
    FILTER_KEY_PATH_LEN = 8,
    FILTER_KEY_FILE_SIZE = 9,
  };

  // The system's filter.
  static BlackList2& getInstance();

  BlackList2() = default;
  BlackList2(const BlackList2& other);
  BlackList2& operator=(const BlackList2& other);

  // Replaces the rules by those of a file: 0 or -1. After -1 there are no rules, the old ones are
  // gone. Tests that run meanwhile see the old rules or the outcome, nothing between.
  int Load(const ustring& path) EXCLUDES(this);
  int Write(const ustring& path) const EXCLUDES(this);
  void Clear() EXCLUDES(this);
  void Destroy() EXCLUDES(this);

  // The codes of filter/filter.h. Paths begin at the sync root; an empty one is the root.
  int TestFilePath(const ustring& path) const EXCLUDES(this);
  int TestDirectoryPath(const ustring& path) const EXCLUDES(this);
  int TestFileSize(std::uint64_t size) const EXCLUDES(this);
  int TestFullPathSize(std::uint64_t size) const EXCLUDES(this);

  // Take no mutex.
  int GetMajorVersion() const { return major_; }
  int GetMinorVersion() const { return minor_; }

  // GetFilter() takes the mutex and ReturnFilter() gives it back, so that all sets can be read
  // without a copy; in between every other operation on the object blocks. See FilterGuard.
  Filter* GetFilter() ACQUIRE();
  void ReturnFilter() RELEASE();

  // Edit a section of a filter that the caller owns or holds by GetFilter(). 0, or -1 for a key
  // that the operation does not serve. An entry that a set has already, ignoring the case of ASCII
  // letters, is not added again.
  static int InsertFilter(VersionSection* section, int major, int minor);
  static int InsertFilter(CommonSection* section, FilterKey key, std::uint64_t value);
  static int InsertFilter(CommonSection* section, FilterKey key, const ustring& value);
  static int InsertFilter(FileSection* section, FilterKey key, std::uint64_t value);
  static int InsertFilter(FileSection* section, FilterKey key, const ustring& value);
  static int InsertFilter(DirectorySection* section, FilterKey key, const ustring& value);
  // An entry that is not there is a success.
  static int RemoveFilter(CommonSection* section, FilterKey key, const ustring& value);
  static int RemoveFilter(FileSection* section, FilterKey key, const ustring& value);

  static bool StringSetValueExist(const value_type_string_set& values, const ustring& value);

 private:
  Filter Copy() const;
  void Replace(Filter&& content);
  void PublishVersion() REQUIRES(mutex);

  mutable Mutex mutex;
  Filter filter GUARDED_BY(mutex);
  // filter.Version, for readers without the mutex.
  std::atomic<int> major_{0}, minor_{0};
};

// Holds the filter of a black list for a scope.
class SCOPED_CAPABILITY FilterGuard {
 public:
  explicit FilterGuard(BlackList2& list) ACQUIRE(list) : list_(list), filter_(list.GetFilter()) {}
  ~FilterGuard() RELEASE() { list_.ReturnFilter(); }
  FilterGuard(const FilterGuard&) = delete;
  FilterGuard& operator=(const FilterGuard&) = delete;

  Filter& operator*() const { return *filter_; }
  Filter* operator->() const { return filter_; }

 private:
  BlackList2& list_;
  Filter* const filter_;
};

}  // namespace tolven
