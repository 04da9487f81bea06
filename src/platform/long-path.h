// Windows paths as text: the long form that lifts the 260-character limit, roots, spelling. Nothing
// here asks the system, so all of it is built and tested everywhere. Both "/" and "\" separate.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "ustring/ustring.h"

namespace tolven::platform {

// The long form: "\\?\C:\dir", for a share "\\?\UNC\server\share\dir". The system takes such a path
// as it stands, so separators become single "\" and those at the end go, but for that of a drive's
// root, which names the device without it. A path in long form is not prefixed again. `path` is
// absolute.
ustring get_extened_path(const ustring& path);

// The way back: "C:\dir", "\\server\share\dir". Other paths come back unchanged.
ustring PlainPath(const ustring& extended);

// Bytes of the part that no folder can be made for, with its separator: "C:/", "//server/share/",
// and the same behind a device prefix. 0 for a relative path.
std::size_t WindowsRootLength(std::string_view path);

// Whether Windows takes each component behind the root for the name of a file. It does not take
// "a:b" (a stream), "nul.txt" (a device), "a." and "a " (another name), control characters,
// wildcards and names of more than 255 units. The form of the path before lifts most of these
// limits, but what was made so, no other program can open or remove.
bool IsWindowsPath(std::string_view path);
// The same for one component.
bool IsWindowsName(std::string_view name);

// Whether two paths are spelled differently and yet name one object on a file system that ignores
// case. Such a rename has to go through a name of its own.
bool DifferOnlyInCase(const ustring& a, const ustring& b);

// The path as the disk spells it, component by component, in plain form with "\". `name_on_disk`
// gives the true name of the last component of the path it gets, false when there is none; the
// result is then false.
using NameLookUp = std::function<bool(const std::string& path, std::string& name)>;
bool SpellPath(const ustring& path, const NameLookUp& name_on_disk, ustring& real);

}  // namespace tolven::platform
