// What a server's answer to a download has to look like before anything is made of it.
#pragma once

#include "protocol/object.h"

namespace tolven {

// Whether every member that is there, or was filled in from what the event told, has its type and a
// value that a record can hold. What must not be missing depends on what was asked for, and is not
// looked at here.
bool IsSoundDownload(const PObject& response);

}  // namespace tolven
