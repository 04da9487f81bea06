// Who and where we are: host, user, the user's data folder, and the owner of a local connection.
#pragma once

#include "platform/sockets.h"
#include "platform/status.h"
#include "ustring/ustring.h"

namespace tolven::platform {

enum class PeerOwner {
  kAllowed,  // a process of the same user, or of an administrator
  kRefused,
  kUnknown,  // the system did not tell; treated as refused
};

class Identity {
 public:
  virtual ~Identity() = default;
  // The computer's name. `platform_id` is the system's number for its kind, for the log.
  virtual Status HostName(ustring& name, int& platform_id) = 0;
  virtual Status UserName(ustring& name) = 0;
  // The user's local application data: XDG_DATA_HOME, else ~/.local/share; on Windows the
  // folder that the shell names.
  virtual Status LocalAppData(ustring& path) = 0;
  virtual Status HomeDirectory(ustring& path) = 0;
  virtual Status TempDirectory(ustring& path) = 0;
  // Who holds the other end of an accepted loopback connection. To be asked right after the
  // accept, while the peer still has its end open.
  virtual PeerOwner OwnerOfPeer(NativeSocket socket) = 0;
};

Identity& identity();
Identity* SetIdentity(Identity* identity);

}  // namespace tolven::platform
