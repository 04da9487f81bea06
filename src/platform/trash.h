// The desktop's recycle bin.
#pragma once

#include "platform/status.h"
#include "ustring/ustring.h"

namespace tolven::platform {

class Trash {
 public:
  virtual ~Trash() = default;
  // Moves a file or a whole folder into the user's bin. kNotSupported: there is none for this path,
  // the caller removes it itself. Not safe to call from two threads at once.
  virtual Status MoveToTrash(const ustring& path) = 0;
};

Trash& trash();
Trash* SetTrash(Trash* trash);

}  // namespace tolven::platform
