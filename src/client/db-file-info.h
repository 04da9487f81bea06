// What the event database remembers of one path: its state at the last agreement of both sides.
// Plain fields hold the local view, the `server` ones the server's, so that a change of privileges
// on one side can be told from one on the other.
#pragma once

#include <cstdint>

#include "protocol/object.h"
#include "ustring/ustring.h"

namespace tolven {

struct DBFileInfo {
  void Clear() { *this = DBFileInfo(); }
  // Whether it is the record of some path.
  bool IsValid() const { return !path.empty(); }
  bool IsFile() const { return fileType == 0; }
  bool IsDir() const { return fileType != 0; }
  // A map of all fields by their names.
  PObject ToPObject() const;

  std::int32_t isExist = 0;
  std::uint64_t syncID = 0;     // server's number of the last change
  std::uint64_t maxSyncID = 0;  // highest such number at or below the path
  std::int32_t fileType = 0;    // 0 file, 1 directory
  std::uint64_t fileSize = 0;   // bytes
  ustring fileCheckSum;
  std::uint32_t fileModTime = 0;  // the server's, seconds
  std::uint32_t localFileModTime = 0;
  std::uint32_t execBit = 0, serverExecBit = 0;
  ustring macHash;
  std::uint32_t unixUid = 0, unixGid = 0, unixMode = 0;
  ustring unixHash;
  std::uint32_t serverUnixUid = 0, serverUnixGid = 0, serverUnixMode = 0;
  ustring aclAttribute, aclHash;
  ustring serverAclAttribute, serverAclHash;
  std::uint32_t sharePrivDisabled = 0;
  ustring sharePrivDenyList, sharePrivRoList, sharePrivRwList, sharePrivHash;
  std::uint32_t serverSharePrivDisabled = 0;
  ustring serverSharePrivDenyList, serverSharePrivRoList, serverSharePrivRwList,
      serverSharePrivHash;
  std::uint64_t inode = 0;
  ustring path;           // below the session's root, "/" or "/a/b"
  ustring signaturePath;  // absolute; a file that setEventInfo moves into the signature store
};

}  // namespace tolven
