#include "platform/peer-table-windows.h"

#include <vector>

#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

// The owner may show a moment after the connection, and the table grows between the question for
// its size and the one for itself.
constexpr int kLooks = 20;
constexpr DWORD kBetweenLooksMs = 10;

using Table = std::vector<MIB_TCPROW_OWNER_PID>;

bool IsEnd(const MIB_TCPROW_OWNER_PID& row, int local_port, int remote_port) {
  const DWORD loopback = ::htonl(INADDR_LOOPBACK);
  const auto port = [](DWORD value) { return int{::ntohs(static_cast<u_short>(value))}; };
  return row.dwLocalAddr == loopback && row.dwRemoteAddr == loopback &&
         port(row.dwLocalPort) == local_port && port(row.dwRemotePort) == remote_port;
}

// Empty when the system does not tell, or the table grew meanwhile.
Table ReadTable() {
  DWORD size = 0;
  (void)::GetExtendedTcpTable(nullptr, &size, FALSE, AF_INET, TCP_TABLE_OWNER_PID_CONNECTIONS, 0);
  // The number of rows comes first; there is room for some more.
  std::vector<DWORD> buffer(size / sizeof(DWORD) + 1024);
  size = static_cast<DWORD>(buffer.size() * sizeof(DWORD));
  if (::GetExtendedTcpTable(buffer.data(), &size, FALSE, AF_INET, TCP_TABLE_OWNER_PID_CONNECTIONS,
                            0) != NO_ERROR) {
    return {};
  }
  const auto* const table = reinterpret_cast<const MIB_TCPTABLE_OWNER_PID*>(buffer.data());
  return {table->table, table->table + table->dwNumEntries};
}

// Room for what GetTokenInformation tells, aligned for any of its structures.
using TokenData = std::vector<std::max_align_t>;

bool Ask(HANDLE token, TOKEN_INFORMATION_CLASS what, TokenData& data) {
  DWORD size = 0;
  (void)::GetTokenInformation(token, what, nullptr, 0, &size);
  data.resize(size / sizeof(std::max_align_t) + 1);
  const auto room = static_cast<DWORD>(data.size() * sizeof(std::max_align_t));
  return ::GetTokenInformation(token, what, data.data(), room, &size) != FALSE;
}

bool IsWellKnown(PSID sid, WELL_KNOWN_SID_TYPE type) {
  return ::IsWellKnownSid(sid, type) != FALSE;
}

// An administrator's process that was not raised has the group for refusals only.
bool IsAdministrator(HANDLE token) {
  TokenData data;
  if (!Ask(token, TokenGroups, data)) return false;
  const auto* const groups = reinterpret_cast<const TOKEN_GROUPS*>(data.data());
  for (DWORD i = 0; i < groups->GroupCount; ++i) {
    const SID_AND_ATTRIBUTES& group = groups->Groups[i];
    const bool counts = (group.Attributes & SE_GROUP_ENABLED) != 0;
    if (counts && IsWellKnown(group.Sid, WinBuiltinAdministratorsSid)) return true;
  }
  return false;
}

PSID UserOf(const TokenData& data) {
  return reinterpret_cast<const TOKEN_USER*>(data.data())->User.Sid;
}

}  // namespace

DWORD FindHolder(int local_port, int remote_port) {
  for (int look = 0; look < kLooks; ++look) {
    if (look > 0) ::Sleep(kBetweenLooksMs);
    for (const MIB_TCPROW_OWNER_PID& row : ReadTable()) {
      if (IsEnd(row, local_port, remote_port) && row.dwOwningPid != 0) return row.dwOwningPid;
    }
  }
  return 0;
}

PeerOwner OwnerOfProcess(DWORD pid) {
  const ScopedHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
  ScopedHandle theirs, ours;
  if (!process.valid() ||
      ::OpenProcessToken(process.get(), TOKEN_QUERY, theirs.receive()) == FALSE ||
      ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, ours.receive()) == FALSE) {
    return PeerOwner::kUnknown;
  }
  TokenData their_user, our_user;
  if (!Ask(theirs.get(), TokenUser, their_user) || !Ask(ours.get(), TokenUser, our_user)) {
    return PeerOwner::kUnknown;
  }
  const PSID user = UserOf(their_user);
  const bool allowed = ::EqualSid(user, UserOf(our_user)) != FALSE ||
                       IsWellKnown(user, WinLocalSystemSid) || IsAdministrator(theirs.get());
  return allowed ? PeerOwner::kAllowed : PeerOwner::kRefused;
}

}  // namespace tolven::platform
