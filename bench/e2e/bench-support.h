// What the benchmarks of this folder share.
#pragma once

#include <fmt/core.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "support/temp-folder.h"

namespace tolven {

inline constexpr int kFilesInFolder = 100;

using BenchClock = std::chrono::steady_clock;

inline double SecondsSince(BenchClock::time_point start) {
  return std::chrono::duration<double>(BenchClock::now() - start).count();
}

inline std::string RandomBytes(std::size_t size, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i + 8 <= size; i += 8) {
    const std::uint64_t word = random();
    std::memcpy(bytes.data() + i, &word, sizeof word);
  }
  return bytes;
}

// The place of the file of that number below the root.
inline std::string BenchPath(int i) {
  return "/folder" + std::to_string(i / kFilesInFolder) + "/file" + std::to_string(i);
}

inline void MakeFiles(const std::string& root, int count, std::size_t size) {
  for (int i = 0; i < count; ++i) {
    const std::string path = root + BenchPath(i);
    if (i % kFilesInFolder == 0) {
      std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    }
    test::WriteFile(ustring(path), RandomBytes(size, static_cast<std::uint64_t>(i) + 1));
  }
}

inline void Print(const std::string& what, double seconds, const std::string& more = "") {
  fmt::print("{:<58} {:8.2f} s  {}\n", what, seconds, more);
  std::fflush(stdout);
}

// rescan-bench.cpp
void BenchRescan();

}  // namespace tolven
