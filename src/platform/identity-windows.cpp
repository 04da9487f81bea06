#include <cstring>
#include <string>

#include "platform/identity.h"
#include "platform/peer-table-windows.h"
#include "platform/service-slot.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

constexpr DWORD kLongestName = 1024;

// Without separators at the end, but for the one of a drive's root.
ustring AsFolder(std::wstring_view text) {
  while (text.size() > 3 && (text.back() == L'\\' || text.back() == L'/')) text.remove_suffix(1);
  return PathFromWide(text);
}

Status ShellFolder(int id, ustring& path) {
  wchar_t buffer[kLongestName] = {};
  const HRESULT result = ::SHGetFolderPathW(nullptr, id, nullptr, SHGFP_TYPE_CURRENT, buffer);
  if (FAILED(result)) return StatusFromError(static_cast<DWORD>(result) & 0xFFFF);
  path = AsFolder(buffer);
  return {};
}

// The port of an end of a connection; 0 when it is not 127.0.0.1.
int LoopbackPort(int(WSAAPI* call)(SOCKET, sockaddr*, int*), NativeSocket socket) {
  sockaddr_in address{};
  int size = sizeof address;
  if (call(static_cast<SOCKET>(socket), reinterpret_cast<sockaddr*>(&address), &size) != 0)
    return 0;
  if (address.sin_family != AF_INET || ::ntohl(address.sin_addr.s_addr) != INADDR_LOOPBACK)
    return 0;
  return ::ntohs(address.sin_port);
}

class WindowsIdentity : public Identity {
 public:
  Status HostName(ustring& name, int& platform_id) override {
    BYTE* buffer = nullptr;
    const DWORD code = ::NetWkstaGetInfo(nullptr, 100, &buffer);
    if (code != NERR_Success) return StatusFromError(code);
    const auto* const info = reinterpret_cast<const WKSTA_INFO_100*>(buffer);
    platform_id = static_cast<int>(info->wki100_platform_id);
    name = FromWide(info->wki100_computername);
    ::NetApiBufferFree(buffer);
    return {};
  }

  Status UserName(ustring& name) override {
    wchar_t buffer[kLongestName];
    DWORD size = kLongestName;  // with the terminator, before and after the call
    if (::GetUserNameW(buffer, &size) == FALSE) return LastError();
    name = FromWide({buffer, size - 1});
    return {};
  }

  Status LocalAppData(ustring& path) override { return ShellFolder(CSIDL_LOCAL_APPDATA, path); }
  Status HomeDirectory(ustring& path) override { return ShellFolder(CSIDL_PROFILE, path); }

  Status TempDirectory(ustring& path) override {
    wchar_t buffer[kLongestName];
    const DWORD size = ::GetTempPathW(kLongestName, buffer);
    if (size == 0) return LastError();
    if (size >= kLongestName) return StatusFromError(ERROR_INSUFFICIENT_BUFFER);
    path = AsFolder({buffer, size});
    return {};
  }

  PeerOwner OwnerOfPeer(NativeSocket socket) override {
    const int ours = LoopbackPort(&::getsockname, socket);
    const int theirs = LoopbackPort(&::getpeername, socket);
    if (ours == 0 || theirs == 0) return PeerOwner::kUnknown;
    const DWORD pid = FindHolder(static_cast<SOCKET>(socket), theirs, ours);
    return pid == 0 ? PeerOwner::kUnknown : OwnerOfProcess(pid);
  }
};

using Slot = ServiceSlot<Identity, WindowsIdentity>;

}  // namespace

Identity& identity() { return Slot::Get(); }
Identity* SetIdentity(Identity* identity) { return Slot::Set(identity); }

}  // namespace tolven::platform
