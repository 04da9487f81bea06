// A file of assignments, one to a line:
//
//   # comment
//   key = value            # a comment may follow; a '#' inside an unquoted value belongs to it
//   key = "quoted value"   # or 'quoted'
//
// Keys are made of 0-9, A-Z, a-z, '-', '.' and '_'. An unquoted value ends at the first blank or
// control character. Lines are at most 8,191 bytes; the rest of a longer one counts as a line of
// its own. The last assignment to a key holds. Used for the daemon's configuration and its log
// levels.
//
// Not locked.
#pragma once

#include <map>
#include <string_view>

#include "ustring/ustring.h"

namespace tolven {

class Config {
 public:
  using Store = std::map<ustring, ustring, UStringLess>;

  // Adds the assignments of a file. -1 for an empty path, a file that cannot be read, or a
  // malformed line, which empties the store; 0 otherwise.
  int read(const ustring& path);
  // The same for text in memory.
  int parse(std::string_view text);
  // Replaces the file: the daemon sees the old or the new one. -1 when it cannot be written or a
  // key or value has no form in the file: a control character, or a blank beside both kinds of
  // quote.
  int write(const ustring& path) const;

  // Empty when the key is absent.
  const ustring& operator[](const ustring& key) const;
  void set(const ustring& key, const ustring& value) { store[key] = value; }
  // `fallback` when the key is absent or its value does not begin with a decimal integer.
  int get_int(const ustring& key, int fallback = 0) const;
  // True for exactly "true"; `fallback` when the key is absent.
  bool get_bool(const ustring& key, bool fallback = false) const;
  void unset(const ustring& key) { store.erase(key); }

  Store::const_iterator begin() const { return store.begin(); }
  Store::const_iterator end() const { return store.end(); }

  // A decimal integer as a text stream reads it: blanks before it and anything behind it are read
  // over. False when there is none or it does not fit.
  static bool ParseInt(std::string_view text, int& value);

 private:
  int ParseLine(std::string_view line);

  Store store;
};

}  // namespace tolven
