// Filter rules that an administrator keeps on the server, as one file of them that reached this
// client (its form: filter/parser.h). Loaded once and shared by threads from then on; the setters
// belong to whoever builds the object.
#pragma once

#include <cstdint>
#include <memory>

#include "lib/black-list2.h"
#include "ustring/ustring.h"

namespace tolven {

class Profile {
 public:
  // Always 0: a file that cannot be read or parsed makes a profile that refuses nothing.
  int LoadFromFile(const ustring& path);

  // The codes of filter/filter.h; 0 before a file was loaded.
  int TestFilePath(const ustring& path) const;
  int TestDirectoryPath(const ustring& path) const;
  int TestFileSize(std::uint64_t size) const;
  int TestFullPathSize(std::uint64_t size) const;

  std::uint64_t GetId() const { return _id; }
  void SetId(std::uint64_t id) { _id = id; }
  const ustring& GetName() const { return _name; }
  void SetName(const ustring& name) { _name = name; }
  const ustring& GetPath() const { return _path; }
  // 32 lower-case hexadecimal digits for the file's content; empty when it could not be read.
  const ustring& GetMd5() const { return _md5; }
  void SetMD5(const ustring& md5) { _md5 = md5; }

 private:
  std::uint64_t _id = 0;
  ustring _name, _path, _md5;
  std::unique_ptr<BlackList2> _black_list;  // null until the first load
};

}  // namespace tolven
