// The SQL functions of the event database, and how a row's id names its signature file.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "ustring/ustring.h"

namespace tolven::event_db {

// Where the signature of a row stands below the signature store: the bytes of the id from the
// highest that is not zero, two hex digits each, with "/" between them and "." before the last, so
// that a folder holds at most 256 signatures, as hidden files: 3 gives ".03", 258 gives "01/.02".
std::string path_convert(std::uint64_t id);

// The text behind the last "/".
std::string_view BaseName(std::string_view path);

// Makes two functions known to a connection:
//   remove_signature(id)  removes the signature file of a row; always 0
//   base_name(path)       as above; of null the empty text
// `sign_path` is the signature store, read at each call while the connection is open. SQLite's
// code.
int CreateFunctions(sqlite3* db, const ustring* sign_path);

}  // namespace tolven::event_db
