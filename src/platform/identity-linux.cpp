#include <limits.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/errno-linux.h"
#include "platform/identity.h"
#include "platform/peer-table-linux.h"
#include "platform/service-slot.h"
#include "platform/socket-diag-linux.h"
#include "platform/system-file-linux.h"

namespace tolven::platform {

namespace {

// The table is not read at one instant: a line may be missed when others come and go meanwhile.
constexpr int kLooks = 3;

// Without trailing separators.
ustring AsFolder(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// The value of a variable that must hold an absolute path; empty when it does not.
std::string PathVariable(const char* name) {
  const char* const value = ::getenv(name);
  return value != nullptr && *value == '/' ? value : "";
}

Status Account(std::string& name, std::string& home) {
  std::vector<char> buffer(16 * 1024);
  passwd entry{};
  passwd* found = nullptr;
  const int code = ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found);
  if (code != 0) return StatusFromErrno(code);
  if (found == nullptr) return StatusFromErrno(ENOENT);
  name = entry.pw_name;
  home = entry.pw_dir;
  return {};
}

class LinuxIdentity : public Identity {
 public:
  Status HostName(ustring& name, int& platform_id) override {
    char buffer[HOST_NAME_MAX + 1] = {};
    platform_id = 0;  // this system has but one kind
    if (::gethostname(buffer, sizeof buffer - 1) != 0) return LastError();
    name = buffer;
    return {};
  }

  Status UserName(ustring& name) override {
    std::string account, home;
    const Status status = Account(account, home);
    if (status.ok()) name = account;
    return status;
  }

  Status LocalAppData(ustring& path) override {
    const std::string data = PathVariable("XDG_DATA_HOME");
    if (!data.empty()) {
      path = AsFolder(data);
      return {};
    }
    const Status status = HomeDirectory(path);
    if (status.ok()) path += path == "/" ? ".local/share" : "/.local/share";
    return status;
  }

  Status HomeDirectory(ustring& path) override {
    std::string name, home = PathVariable("HOME");
    if (home.empty()) {
      const Status status = Account(name, home);
      if (!status.ok()) return status;
    }
    path = AsFolder(home);
    return {};
  }

  Status TempDirectory(ustring& path) override {
    const std::string folder = PathVariable("TMPDIR");
    path = folder.empty() ? ustring("/tmp") : AsFolder(folder);
    return {};
  }

  PeerOwner OwnerOfPeer(NativeSocket socket) override {
    // The peer's end has our addresses the other way round.
    sockaddr_storage ours{}, theirs{};
    socklen_t ours_size = sizeof ours, theirs_size = sizeof theirs;
    const int fd = static_cast<int>(socket);
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&ours), &ours_size) != 0 ||
        ::getpeername(fd, reinterpret_cast<sockaddr*>(&theirs), &theirs_size) != 0) {
      return PeerOwner::kUnknown;
    }
    uid_t user = 0;
    const Status asked = QueryHolder(theirs, ours, user);
    if (asked.ok()) return Judge(user);
    if (asked.is(ErrorKind::kNotFound)) return PeerOwner::kUnknown;
    return LookUpOwner(ours, theirs);
  }

 private:
  static PeerOwner Judge(uid_t holder) {
    return holder == 0 || holder == ::geteuid() ? PeerOwner::kAllowed : PeerOwner::kRefused;
  }
  // Where the kernel answers no questions.
  static PeerOwner LookUpOwner(const sockaddr_storage& ours, const sockaddr_storage& theirs) {
    const std::string local = TableForm(theirs);
    const std::string remote = TableForm(ours);
    if (local.empty() || remote.empty()) return PeerOwner::kUnknown;
    const char* const table = ours.ss_family == AF_INET6 ? "/proc/net/tcp6" : "/proc/net/tcp";
    for (int look = 0; look < kLooks; ++look) {
      std::string text;
      if (!ReadSystemFile(table, text).ok()) continue;
      const std::optional<uid_t> holder = FindHolder(text, local, remote);
      if (!holder) continue;
      return Judge(*holder);
    }
    return PeerOwner::kUnknown;
  }
};

using Slot = ServiceSlot<Identity, LinuxIdentity>;

}  // namespace

Identity& identity() { return Slot::Get(); }
Identity* SetIdentity(Identity* identity) { return Slot::Set(identity); }

}  // namespace tolven::platform
