#include "ctl/sync-root.h"

#include <filesystem>
#include <string_view>
#include <system_error>

#include "client/core/session-layout.h"
#include "lib/policy.h"
#include "platform/files.h"
#include "platform/identity.h"

namespace tolven::ctl {
namespace {

namespace fs = std::filesystem;

fs::path ToPath(std::string_view text) { return {std::u8string(text.begin(), text.end())}; }

ustring ToText(const fs::path& path) {
  const std::u8string text = path.generic_u8string();
  return ustring(std::string(text.begin(), text.end()));
}

bool IsAtOrBelow(std::string_view path, std::string_view folder) {
  if (folder.ends_with('/')) folder.remove_suffix(1);
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

bool HasComponent(std::string_view path, std::string_view name) {
  for (const fs::path& part : ToPath(path)) {
    if (ToText(part).view() == name) return true;
  }
  return false;
}

}  // namespace

std::string DefaultSyncRoot(std::string& error) {
  ustring home;
  const platform::Status status = platform::identity().HomeDirectory(home);
  if (status.ok()) return home.str() + "/Tolven";
  error = "cannot find your home directory: " + platform::StatusText(status);
  return {};
}

ustring PlainFolder(const std::string& text) {
  std::error_code code;
  fs::path path = fs::weakly_canonical(fs::absolute(ToPath(text), code), code);
  if (code) path = fs::absolute(ToPath(text), code).lexically_normal();
  if (!path.has_filename()) path = path.parent_path();
  return ToText(path);
}

bool Overlap(const ustring& a, const ustring& b) {
  return IsAtOrBelow(a.view(), b.view()) || IsAtOrBelow(b.view(), a.view());
}

void CheckSyncRoot(const ustring& folder, const Home& home,
                   const std::vector<SessionRecord>& others, std::string& error) {
  const std::string quoted = "'" + folder.str() + "'";
  const ustring own = PlainFolder(home.root.str());
  if (IsAtOrBelow(own.view(), folder.view())) {
    error = quoted + " cannot be synced: it holds Tolven Hub's own data, " + own.str();
  } else if (IsAtOrBelow(folder.view(), own.view()) || !IsValidNode(folder)) {
    error = quoted + " cannot be synced: Tolven Hub keeps its own data at " + own.str() +
            ", and nothing in there takes part";
  } else if (HasComponent(folder.view(), kWorkingDirectory)) {
    error = quoted + " cannot be synced: it lies in the working directory of a session";
  }
  for (const SessionRecord& other : others) {
    if (!error.empty() || !Overlap(folder, other.folder)) continue;
    error = quoted + " cannot be synced: it overlaps " + other.folder.str() + " of session " +
            std::to_string(other.id);
  }
  platform::NodeInfo info;
  if (error.empty() && platform::files().Stat(folder, info).ok() &&
      info.kind != platform::NodeKind::kDirectory) {
    error = quoted + " is no folder";
  }
}

}  // namespace tolven::ctl
