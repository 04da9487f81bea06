// Request and answer of one transfer. They own the temporary files that they name: what is still
// named in the end is removed, unless the cache of broken transfers has it.
#pragma once

#include "client/core/helpers/pobject-helper.h"
#include "protocol/object.h"
#include "ustring/ustring.h"

namespace tolven {

class TransferObjects {
 public:
  // Files outside `working_directory` are the user's.
  explicit TransferObjects(const ustring& working_directory)
      : working_directory_(working_directory) {}
  TransferObjects(const TransferObjects&) = delete;
  TransferObjects& operator=(const TransferObjects&) = delete;
  ~TransferObjects() { Clear(); }

  void Clear() {
    PObjectHelper::ClearPObject(response, working_directory_);
    PObjectHelper::ClearPObject(request, working_directory_);
  }
  // The files belong to somebody else now.
  void Release() {
    response.clear();
    request.clear();
  }

  PObject request, response;

 private:
  const ustring working_directory_;
};

}  // namespace tolven
