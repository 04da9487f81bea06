#include "client/event-db-paths.h"

#include "client/event-db-connection.h"

namespace tolven::event_db {

std::string GlobPrefix(const ustring& path) {
  std::string pattern;
  for (const char c : Prefix(path)) {
    if (c == '[' || c == '*' || c == '?') {
      pattern.append(1, '[').append(1, c).append(1, ']');
    } else {
      pattern += c;
    }
  }
  return pattern;
}

std::string AtOrBelow(const ustring& path) {
  const std::string exact(Prefix(path));
  return Sql("(path = %Q OR path GLOB '%q/*')", exact.c_str(), GlobPrefix(path).c_str());
}

}  // namespace tolven::event_db
