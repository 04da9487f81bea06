// The buffer that Windows fills with changes below a folder (FILE_NOTIFY_INFORMATION). Read here
// byte by byte and not through the system's structure, so that every platform can test it.
//
// A record, all numbers little-endian, 32 bits:
//    0  distance from the start of this record to the next, 0 in the last
//    4  action, see WatchAction
//    8  length of the name in bytes, even
//   12  name in UTF-16, no terminator, relative to the watched folder
#pragma once

#include <cstddef>
#include <vector>

#include "platform/dir-watch.h"

namespace tolven::platform {

// Appends the records of `size` bytes to `records`. False when a record does not have the form; the
// ones in front of it are there, and what follows cannot be found. No bytes are no records.
// Halves of surrogate pairs that stand alone become U+FFFD.
bool DecodeNotifyRecords(const void* data, std::size_t size, std::vector<WatchRecord>& records);

}  // namespace tolven::platform
