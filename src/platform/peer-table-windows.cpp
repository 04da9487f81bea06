#include "platform/peer-table-windows.h"

#include <algorithm>
#include <vector>

#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

// The holder may show a moment after the connection, here and there only after its first word.
// Whoever connects to us has something to say, and a look at the table can take long.
constexpr int kLooks = 6;
constexpr int kFirstWordMs = 40;
constexpr DWORD kBetweenLooksMs = 10;

using Table = std::vector<MIB_TCPROW_OWNER_PID>;

void AwaitFirstWord(SOCKET socket) {
  fd_set set;
  FD_ZERO(&set);
  set.fd_array[set.fd_count++] = socket;
  timeval limit{0, kFirstWordMs * 1000};
  (void)::select(0, &set, nullptr, nullptr, &limit);
}

bool IsEnd(const MIB_TCPROW_OWNER_PID& row, int local_port, int remote_port) {
  const DWORD loopback = ::htonl(INADDR_LOOPBACK);
  const auto port = [](DWORD value) { return int{::ntohs(static_cast<u_short>(value))}; };
  return row.dwLocalAddr == loopback && row.dwRemoteAddr == loopback &&
         port(row.dwLocalPort) == local_port && port(row.dwRemotePort) == remote_port;
}

// Empty when the system does not tell, or the table kept growing.
Table ReadTable() {
  // Asking for the size first would take as long as asking for the rows.
  std::vector<DWORD> buffer(16 * 1024);
  DWORD size = 0, code = ERROR_INSUFFICIENT_BUFFER;
  for (int i = 0; i < 3 && code == ERROR_INSUFFICIENT_BUFFER; ++i) {
    buffer.resize(std::max<std::size_t>(buffer.size(), size / sizeof(DWORD) + 1024));
    size = static_cast<DWORD>(buffer.size() * sizeof(DWORD));
    code = ::GetExtendedTcpTable(buffer.data(), &size, FALSE, AF_INET,
                                 TCP_TABLE_OWNER_PID_CONNECTIONS, 0);
  }
  if (code != NO_ERROR) return {};
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

DWORD FindHolder(SOCKET socket, int peer_port, int own_port) {
  for (int look = 0; look < kLooks; ++look) {
    if (look > 0) ::Sleep(kBetweenLooksMs);
    AwaitFirstWord(socket);
    for (const MIB_TCPROW_OWNER_PID& row : ReadTable()) {
      if (IsEnd(row, peer_port, own_port) && row.dwOwningPid != 0) return row.dwOwningPid;
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
