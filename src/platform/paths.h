// The form of paths on this system.
#pragma once

#include <cstddef>
#include <string>

#include "platform/status.h"
#include "ustring/ustring.h"

namespace tolven::platform {

// "/", and on Windows "\" too.
bool IsPathSeparator(char c);

// Bytes of the part that no folder can be made for: "/" on Linux; "C:/", a share or a device prefix
// on Windows. 0 for a relative path.
std::size_t PathRootLength(const ustring& path);

// Whether two names that differ only in case are one to the file systems of this system.
bool NamesIgnoreCase();

// Between UTF-16 and the active code page, which is UTF-8 on Linux. kInvalid for text that has no
// counterpart.
Status FromCodePage(const std::string& text, std::u16string& wide);
Status ToCodePage(const std::u16string& wide, std::string& text);

}  // namespace tolven::platform
