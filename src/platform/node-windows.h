// What the sources of the Windows file service share: the look at one name, listings, appending.
#pragma once

#include <memory>

#include "platform/files.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

inline constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// Opens folders too, and a link itself rather than what it leads to.
inline constexpr DWORD kOpenNode = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

inline HANDLE HandleOf(NativeFile file) { return reinterpret_cast<HANDLE>(file); }
inline NativeFile NativeOf(HANDLE handle) { return reinterpret_cast<NativeFile>(handle); }

Status InfoOfHandle(HANDLE handle, NodeInfo& info);
// Opens an existing object of any kind, with every sharing, and nothing but `access`.
Status OpenNode(const PathArgument& path, DWORD access, DWORD flags, ScopedHandle& node);
// The attributes of the object itself; kNotFound when there is none.
Status AttributesOf(const PathArgument& path, DWORD& attributes);
// The last component as the disk spells it. Of a root, what stands in the path.
Status FindName(const PathArgument& path, ustring& name);

enum class Links { kFollow, kRefuse };
Status ListFolder(const PathArgument& path, Links links, bool want_info,
                  std::unique_ptr<DirReader>& reader);

std::unique_ptr<AppendWriter> NewWindowsAppendWriter();

}  // namespace tolven::platform
