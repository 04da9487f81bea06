// A server, and what tests do with folders that are synced with it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "e2e/client-process.h"
#include "e2e/server-process.h"

namespace tolven::test {

// Bytes that do not compress into each other: another text for each seed.
inline std::string Noise(std::size_t size, std::uint64_t seed) {
  std::string bytes(size, '\0');
  std::uint64_t state = seed * 2 + 1;
  for (char& byte : bytes) {
    state = state * 6364136223846793005U + 1442695040888963407U;
    byte = static_cast<char>(state >> 56);
  }
  return bytes;
}

class Sync : public ::testing::Test {
 protected:
  static void Write(const ClientProcess& client, const std::string& path,
                    const std::string& content) {
    const fs::path full((client / path).str());
    fs::create_directories(full.parent_path());
    WriteFile(Utf8(full), content);
  }
  // Puts a whole file in the place of another, so that nobody sees an empty one in between.
  void Replace(const ClientProcess& client, const std::string& path, const std::string& content) {
    const ustring draft = drafts_ / "draft";
    WriteFile(draft, content);
    fs::rename(draft.str(), (client / path).str());
  }
  // Both folders come to hold exactly this.
  static void ExpectBoth(const ClientProcess& a, const ClientProcess& b, const Tree& wanted) {
    EXPECT_TRUE(Eventually([&] { return a.Files() == wanted && b.Files() == wanted; }))
        << "a: " << Names(a.Files()) << "\nb: " << Names(b.Files())
        << "\nwanted: " << Names(wanted);
  }
  // Both folders come to hold the same, for which `holds` is true.
  static void ExpectSame(const ClientProcess& a, const ClientProcess& b,
                         const std::function<bool(const Tree&)>& holds) {
    EXPECT_TRUE(Eventually([&] {
      const Tree tree = a.Files();
      return tree == b.Files() && holds(tree);
    })) << "a: "
        << Names(a.Files()) << "\nb: " << Names(b.Files());
  }
  static std::string Names(const Tree& tree) {
    std::string names;
    for (const auto& [name, content] : tree) {
      names +=
          name + " (" + (content.size() < 40 ? content : std::to_string(content.size())) + "), ";
    }
    return names;
  }
  // How many files have this content.
  static int Count(const Tree& tree, const std::string& content) {
    int count = 0;
    for (const auto& [name, each] : tree) count += each == content ? 1 : 0;
    return count;
  }

  ServerProcess server_;
  TempFolder drafts_;
};

}  // namespace tolven::test
