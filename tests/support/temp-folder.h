// A folder of a test's own that goes when the test ends.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include "ustring/ustring.h"

namespace tolven::test {

class TempFolder {
 public:
  TempFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "tolven-test-XXXXXX").string();
    const char* const made = mkdtemp(name.data());
    path_ = made == nullptr ? "" : made;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  ustring operator/(const std::string& name) const { return ustring(path_ + "/" + name); }

 private:
  std::string path_;
};

inline void WriteFile(const ustring& path, const std::string& content) {
  std::ofstream(path.str(), std::ios::binary) << content;
}

inline std::string ReadFile(const ustring& path) {
  std::ostringstream content;
  const std::ifstream in(path.str(), std::ios::binary);
  content << in.rdbuf();
  return std::move(content).str();
}

}  // namespace tolven::test
