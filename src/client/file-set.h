// The files of one directory, in 24 bytes each and 4 to 8 more while the set grows. Names are
// compared by pointer when files are added, and sorted when a walk first comes by.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/string-buffer.h"

namespace tolven {

class FileSet {
 public:
  struct Attr {
    std::uint64_t size = 0;
    std::uint32_t mtime = 0;
    std::uint32_t acl = 0;  // index of the access list's hash
  };
  struct FileNode {
    StringBuffer::String name;
    Attr attr;
  };

  // REQUIRES: all names come from one buffer.
  bool Contains(StringBuffer::String name);
  // False when the name is there.
  bool Add(StringBuffer::String name, const Attr& attr);
  // The same without a look. REQUIRES: the name is not there.
  void Append(StringBuffer::String name, const Attr& attr);

  bool empty() const { return files_.empty(); }

  // Ascending by name, until the next Add.
  const std::vector<FileNode>& Sorted();

 private:
  // The slot that holds `name`, or the empty one where it belongs.
  std::size_t FindSlot(StringBuffer::String name) const;
  void BuildIndex(std::size_t slots);

  std::vector<FileNode> files_;
  // Open addressing over positions in files_ plus one, 0 for empty; a power of two slots, or none
  // while the set is small or sorted.
  std::vector<std::uint32_t> index_;
  bool sorted_ = true;
};

}  // namespace tolven
