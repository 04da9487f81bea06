// A folder of a test's own that goes when the test ends.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <utility>

#include "ustring/ustring.h"

namespace tolven::test {

class TempFolder {
 public:
  TempFolder() {
    namespace fs = std::filesystem;
    std::random_device random;
    fs::path made;
    do {
      made = fs::temp_directory_path() / ("tolven-test-" + std::to_string(random()));
    } while (!fs::create_directory(made));
    fs::permissions(made, fs::perms::owner_all);
    const std::u8string text = made.generic_u8string();
    path_.assign(text.begin(), text.end());
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

inline std::filesystem::path FsPath(const ustring& path) {
  const std::string& text = path.str();
  return std::u8string(text.begin(), text.end());
}

// With "/" as separator.
inline std::string Utf8(const std::filesystem::path& path) {
  const std::u8string text = path.generic_u8string();
  return {text.begin(), text.end()};
}

inline void WriteFile(const ustring& path, const std::string& content) {
  std::ofstream(FsPath(path), std::ios::binary) << content;
}

inline std::string ReadFile(const ustring& path) {
  std::ostringstream content;
  const std::ifstream in(FsPath(path), std::ios::binary);
  content << in.rdbuf();
  return std::move(content).str();
}

}  // namespace tolven::test
