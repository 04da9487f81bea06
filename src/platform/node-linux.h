// What the sources of the Linux file service share: paths as the kernel takes them and the look at
// one name.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <string>
#include <string_view>

#include "platform/files.h"

namespace tolven::platform {

// A path without trailing separators. With one behind it the kernel follows a link, and no call
// that names an object may do so.
class PathArgument {
 public:
  explicit PathArgument(const ustring& path);
  const char* c_str() const { return text_; }
  std::string_view view() const { return text_; }

 private:
  std::string copy_;  // only when something had to be cut off
  const char* text_;
};

// The folder that holds the last component of `path`, and that component.
std::string ParentOf(std::string_view path);
std::string_view NameOf(std::string_view path);

NodeInfo InfoOf(const struct stat& st);

// Opens a folder for reading, through a link too unless told otherwise; -1 with errno on failure.
enum class Links { kFollow, kRefuse };
int OpenFolder(const char* path, Links links = Links::kFollow);
std::unique_ptr<DirReader> NewDirReader(DIR* dir, bool want_info);
std::unique_ptr<AppendWriter> NewLinuxAppendWriter();

}  // namespace tolven::platform
