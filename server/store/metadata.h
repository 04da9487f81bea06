// What the server knows of users, sessions and views, and every version of every object. The
// protocol side sees this alone, so that another store can take the place of the one on disk.
//
// Operations may be called from any thread. Lookups give 1 found, 0 not found, -1 failed; listings
// 0 or -1. A change is durable when its call returns, or has not happened.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ustring/ustring.h"

namespace tolven::server {

struct User {
  std::uint64_t id = 0;
  std::string name;
  std::uint32_t uid = 0;
  std::vector<std::uint32_t> groups;
  bool is_admin = false;
};

struct View {
  std::uint64_t id = 0;
  std::string name;
  std::uint64_t quota = 0;  // bytes; 0: none
  bool read_only = false;
  std::uint64_t last_number = 0;  // of its changes, as it was read
};

// A file's bytes.
struct Content {
  std::uint64_t id = 0;  // 0 until some object has had it
  std::uint64_t size = 0;
  std::string md4, sha256;  // lower-case hexadecimal
};

// A content and a path that has it, or had it in an older version.
struct KnownContent {
  Content content;
  std::string path;
};

// One version of an object.
struct Node {
  std::string path;  // "/" or "/a/b"
  bool is_dir = false, is_removed = false;
  std::uint64_t sync_id = 0;  // number of its last change
  std::uint64_t max_id = 0;   // of a folder the highest at or below it, else sync_id
  Content content;
  std::uint32_t mtime = 0;  // seconds since 1970
  bool exec_bit = true;
  std::uint32_t uid = 0, gid = 0, mode = 1877;
  std::string acl;  // access list as text; an object that is gone keeps what it had
};

struct Profile {
  std::string name;  // a plain file name
  std::string md5;   // of its content, lower-case hexadecimal
  ustring file;      // where it lies
};

enum class Outcome {
  kDone,
  kFailed,
  kNoBase,       // the version that was to be replaced is of an object that is gone
  kBaseChanged,  // it is not the current one any more
  kConflict,     // a new path is taken, or a folder on its way is a file
  kQuota,
  kNotFound,
  kModified,  // what is to be removed is newer than the client knows
};

// What is larger than this goes to the content store before its version is made. Smaller contents
// come with the metadata, so that one sync makes both durable, and go there later.
inline constexpr std::uint64_t kLargestSmallContent = 16 * 1024;

struct SmallContent {
  Content content;
  std::string bytes;
};

struct Put {
  std::string path;
  bool is_dir = false;
  std::uint64_t base = 0;  // number of the version that this replaces; 0: the path is new
  // Highest number that the client knows at and below a folder which a file replaces.
  std::uint64_t max_id = 0;
  // Of a file; its bytes are in the content store already, or those of a small one come along.
  Content content;
  const std::string* bytes = nullptr;
  std::optional<std::uint32_t> mtime;  // unset: as before
  std::optional<bool> exec_bit;
  std::uint32_t uid = 0;  // of who does it
  std::string acl;        // of a new object
};

class Metadata {
 public:
  virtual ~Metadata() = default;

  virtual int FindSession(const std::string& token, User& user) = 0;
  virtual int FindUser(const std::string& name, User& user) = 0;
  virtual int FindView(std::uint64_t id, View& view) = 0;
  // The last version of a path, which may be that of its removal.
  virtual int FindNode(std::uint64_t view, const std::string& path, Node& node) = 0;
  // One that is kept, the current one included.
  virtual int FindVersion(std::uint64_t view, const std::string& path, std::uint64_t sync_id,
                          Node& node) = 0;
  // Last versions at and below `folder` with numbers above `after`, ascending, at most `limit`.
  virtual int ListChanges(std::uint64_t view, const std::string& folder, std::uint64_t after,
                          std::size_t limit, std::vector<Node>& out) = 0;
  virtual int ListProfiles(std::uint64_t user, std::vector<Profile>& out) = 0;
  // Contents with these sums that versions in the view have, with the paths of these versions: by
  // content and path, those behind `after`, at most `limit`.
  virtual int ListKnownContents(std::uint64_t view, const std::string& md4, std::uint64_t size,
                                const KnownContent& after, std::size_t limit,
                                std::vector<KnownContent>& out) = 0;
  // The bytes of a content that came along with a version.
  virtual int FindBytes(const std::string& sha256, std::string& bytes) = 0;
  // The highest id among the contents whose bytes are here, 0 for none or a failure; and the oldest
  // of them, at most `limit`.
  virtual std::uint64_t LastSmallContent() = 0;
  virtual int ListSmallContents(std::size_t limit, std::vector<SmallContent>& out) = 0;
  // Forgets the bytes of contents that the content store has by now.
  virtual Outcome DropBytes(const std::vector<std::uint64_t>& ids) = 0;
  // Bytes of the files at and below a path: what its removal would free.
  virtual int UsedBytes(std::uint64_t view, const std::string& path, std::uint64_t& bytes) = 0;

  // Makes a version, with the folders that are missing on its way. An object of the other kind is
  // replaced, a folder with all below it. A new path that holds the same already is done.
  virtual Outcome PutNode(std::uint64_t view, const Put& put, Node& made) = 0;
  // Removes an object, a folder with all below it, unless a file is not at `sync_id`, or a
  // folder or something that is below it is above `max_id`.
  virtual Outcome RemoveNode(std::uint64_t view, const std::string& path, std::uint64_t sync_id,
                             std::uint64_t max_id, Node& removed) = 0;
  // Objects at and below `folder` that have an access list of their own.
  virtual int ListRuled(std::uint64_t view, const std::string& folder, std::vector<Node>& out) = 0;
};

}  // namespace tolven::server
