// The bytes of all versions, each content once, under the name of its SHA-256.
#pragma once

#include <string>

#include "server/store/metadata.h"
#include "ustring/ustring.h"

namespace tolven::server {

// Operations may be called from any thread.
class ContentStore {
 public:
  virtual ~ContentStore() = default;

  // Where a content lies; it is never changed there.
  virtual ustring PathOf(const std::string& sha256) = 0;
  // Takes a file over, whose MD4 the caller knows, and fills `content` but for its id. A SHA-256
  // that stands in `content` already is taken for the file's; it is found out when there is none.
  // 0 once the bytes are durable, or -1 with the file where it was, or whole in the store already.
  virtual int Add(const ustring& file, const std::string& md4, Content& content) = 0;
};

}  // namespace tolven::server
