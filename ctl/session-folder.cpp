#include "ctl/session-folder.h"

#include <utility>

#include "ctl/home.h"
#include "lib/file-op.h"
#include "platform/files.h"

namespace tolven::ctl {
namespace {

constexpr const char* kVersion = "[Version]\nmajor = 1\nminor = 0\n";

}  // namespace

ustring BlackListPath(const ustring& session_folder) {
  return session_folder + "/conf/blacklist.filter";
}

bool PrepareSessionFolder(const ustring& session_folder, std::string& error) {
  for (const char* name : {"/conf", "/db"}) {
    if (FSMKDir(session_folder + name, true) == 0) continue;
    error = "cannot make the folder " + session_folder.str() + name;
    return false;
  }
  const std::string version = kVersion;
  const std::pair<ustring, std::string> files[] = {
      {BlackListPath(session_folder), version},
      {session_folder + "/conf/whitelist.filter", version + "[File]\nwhite_ext = \"*\"\n"},
      {session_folder + "/conf/force-hash-check-list.filter", version + "[File]\n"},
  };
  for (const auto& [path, text] : files) {
    platform::NodeInfo info;
    if (!platform::files().Stat(path, info).ok() && !ReplaceFile(path, text, error)) return false;
  }
  return true;
}

}  // namespace tolven::ctl
