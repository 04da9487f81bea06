// What is done with contents on their way between client and store. Each call reads files of any
// size in pieces and ends early when the connection does.
#pragma once

#include <cstdint>
#include <string>

#include "server/protocol/long-work.h"
#include "server/protocol/service.h"
#include "ustring/ustring.h"

namespace tolven::server {

class ContentWork {
 public:
  ContentWork(Service& service, LongWork& long_work) : service_(service), long_work_(long_work) {}

  // The MD4 of a file, as 32 lowercase digits.
  bool Hash(const ustring& path, ustring& md4);
  // Applies the delta to the basis and gives the sums of the result, `target`. Never writes more
  // than `size` bytes, which is what the client announced.
  bool Patch(const ustring& basis, const ustring& delta, const ustring& target, std::uint64_t size,
             ustring& md4, std::string& sha256);
  // A delta that makes `target` of `basis`, written to `delta`. False also when a delta is not
  // worth its cost: for small files, for files whose signature would be too large to hold, and
  // when it came out no smaller than the file.
  bool MakeDelta(const ustring& basis, const ustring& target, const ustring& delta);

 private:
  Service& service_;
  LongWork& long_work_;
};

std::uint64_t FileSize(const ustring& path);  // 0 for a file that is not there

}  // namespace tolven::server
