// How the tree reads a path: names are bytes, compared exactly. A path counts up to 4,095 bytes
// and a component up to 1,023; what is beyond is cut.
#pragma once

#include <string_view>

#include "ustring/ustring.h"

namespace tolven {

// The key of an event's path in the file status database: the path below the session's local root,
// "/" being the root itself, with "\" as separator and none doubled.
ustring FileStatusKey(const ustring& local_root, std::string_view path);

// A place below a local folder: `root` itself for "" and "/", else both joined without doubling a
// separator.
ustring JoinPath(const ustring& root, std::string_view path);

// Whether a name that a server sent may stand for one component of a path: it names neither
// nothing, nor a place above or beside its folder, nor the working directory. `ignore_case`: the
// disk does not tell "A" from "a" whatever the system does.
bool IsPlainName(std::string_view name, bool ignore_case = false);

// Whether a path that a server sent is "/" or "/a/b" made of plain names, and not longer than what
// the tree can tell apart.
bool IsReceivedPath(const ustring& path, bool ignore_case = false);

struct SplitPath {
  std::string_view dir;   // without the last component; read with PathWalker
  std::string_view name;  // the last component
};

// Splits at the last "/". False, leaving `out` alone, when the path ends in "/" or is empty.
bool BaseName(std::string_view path, SplitPath& out);

// Yields the components of a directory path, skipping runs of "/".
class PathWalker {
 public:
  explicit PathWalker(std::string_view dir) : rest_(dir) {}
  // The next component, or an empty one at the end.
  std::string_view Next();

 private:
  std::string_view rest_;
};

}  // namespace tolven
