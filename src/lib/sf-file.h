// A temporary file without an owner: it stays until somebody removes it.
#pragma once

#include <cstdint>

#include "ustring/ustring.h"

namespace tolven {

class SFFile {
 public:
  static void initialize(const ustring& prefix);

  explicit SFFile(const ustring& prefix = ustring());

  void setPrefix(const ustring& prefix) { m_prefix = prefix; }
  const ustring& getPath() const { return m_path; }

  // Makes the file, empty and mode 0600; keeps the one there is. 0 or -1.
  int create();
  int remove();
  std::uint64_t getSize() const;  // 0 when it does not exist

 private:
  static ustring default_prefix;

  ustring m_prefix, m_path;
};

}  // namespace tolven
