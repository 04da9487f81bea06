// A file of lines `key = value`, the form of the daemon's configuration and of the log-level file.
//
// A key is made of 0-9, A-Z, a-z, "-", "." and "_". A value is quoted with ' or ", or runs up to a
// blank or control character; a "#" inside an unquoted value belongs to it. Blank lines, comments
// (#) and keys with nothing behind them are passed over. Later assignments replace earlier ones.
// There is no escape, and no line longer than 8,191 bytes: what follows counts as a line of its
// own.
#pragma once

#include <map>
#include <string_view>

#include "ustring/ustring.h"

namespace tolven {

class Config {
 public:
  using store_type = std::map<ustring, ustring, UStringLess>;

  // 0, or -1 for an empty path, a file that cannot be read, or the first malformed line, which also
  // erases everything read so far.
  int read(const ustring& path);
  // The same on text in memory.
  int parse(std::string_view text);
  // Writes all pairs, each value in quotes. -1 when the file cannot be written or a value cannot be
  // quoted.
  int write(const ustring& path) const;

  // Empty when the key is absent.
  const ustring& operator[](const ustring& key) const;
  void set(const ustring& key, const ustring& value) { store_[key] = value; }
  // `fallback` when the key is absent or its value is none.
  int get_int(const ustring& key, int fallback) const;
  bool get_bool(const ustring& key, bool fallback) const;  // "true" or "false"
  void unset(const ustring& key) { store_.erase(key); }

  store_type::const_iterator begin() const { return store_.begin(); }
  store_type::const_iterator end() const { return store_.end(); }

 private:
  bool ParseLine(std::string_view line);

  store_type store_;
};

}  // namespace tolven
