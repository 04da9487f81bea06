// Edits what a session leaves out: the black list file in its folder.
//
//   kind       value                      leaves out
//   name       "Thumbs.db"                files of that name, in any folder
//   extension  "tmp" or ".tmp"            files with that extension
//   path       "/Videos"                  that folder, or file, and all below it
//   size       "100M", in B, K, M, G      files that are larger
//
// Names, extensions and paths ignore the case of ASCII letters. Other rules that somebody wrote
// into the file stay; comments do not.
#pragma once

#include <string>
#include <vector>

#include "filter/filter.h"
#include "ustring/ustring.h"

namespace tolven::ctl {

struct Rule {
  std::string kind, value;
};

class RuleEditor {
 public:
  explicit RuleEditor(ustring path) : path_(std::move(path)) {}

  // All of these: false with one line in `error`.
  bool Load(std::string& error);
  bool Add(const Rule& rule, std::string& error);
  // A rule that is not there is an error.
  bool Remove(const Rule& rule, std::string& error);
  bool Save(std::string& error) const;

  std::vector<Rule> List() const;
  // Since Load(): whether anything changed, and whether something that was left out takes part
  // again.
  bool has_changed() const { return has_changed_; }
  bool has_loosened() const { return has_loosened_; }

 private:
  bool ChangeSize(const Rule& rule, std::uint64_t size, std::string& error);
  value_type_string_set* SetOf(const std::string& kind);

  const ustring path_;
  Filter filter_;
  bool has_changed_ = false, has_loosened_ = false;
};

// Bytes of "100", "100K", "1.5G" (units of 1024). False for anything else, 0 included.
bool ReadSize(const std::string& text, std::uint64_t& bytes);
// "1.5 MiB".
std::string SizeText(std::uint64_t bytes);

}  // namespace tolven::ctl
