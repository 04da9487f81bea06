// Requests and answers, and the files that they name.
#pragma once

#include "protocol/object.h"
#include "ustring/ustring.h"

namespace tolven {

struct PObjectHelper {
  // Removes the file of `file.data` when it lies below the folder `prefix`, so that a user's own
  // file is safe, and that of `mac_attribute.data`, which is never a user's; then empties the
  // object.
  static void ClearPObject(PObject& object, const ustring& prefix);
  // The members of `a`, and those of `b` that `a` lacks.
  static PObject MergeIfNotExist(const PObject& a, const PObject& b);
};

}  // namespace tolven
