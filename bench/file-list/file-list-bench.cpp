// A listing of 1,000,000 files in 10,000 folders: bytes of heap for each, names counted, and the
// time to fill it and to walk it.
#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "client/file-list.h"

namespace {

std::size_t heap_bytes = 0;

}  // namespace

// Every allocation with what the allocator adds to it. One thread allocates here.
void* operator new(std::size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  heap_bytes += malloc_usable_size(block) + sizeof(std::size_t);
  return block;
}
void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  heap_bytes -= malloc_usable_size(block) + sizeof(std::size_t);
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

int main() {
  using Clock = std::chrono::steady_clock;
  constexpr int kFolders = 10'000, kFilesInEach = 100, kFiles = kFolders * kFilesInEach;
  const auto since = [](Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
  };
  const std::size_t before = heap_bytes;
  Clock::time_point start = Clock::now();
  const auto buffer = std::make_unique<tolven::StringBuffer>(0x200);
  const auto list = std::make_unique<tolven::FileList>(*buffer);
  for (int folder = 0; folder < kFolders; ++folder) {
    const std::string path = "/projects/folder " + std::to_string(folder) + "/";
    for (int file = 0; file < kFilesInEach; ++file) {
      list->AddFile(path + "document " + std::to_string(folder * kFilesInEach + file) + ".txt",
                    1'700'000'000, 4096, "");
    }
  }
  const double filled = since(start);
  const double each = static_cast<double>(heap_bytes - before) / kFiles;
  start = Clock::now();
  int entries = 0;
  for (auto entry = list->rbegin(); entry != list->rend(); ++entry) ++entries;
  std::printf("%.1f bytes a file (wanted 100), filled in %.2f s, %d entries walked in %.2f s\n",
              each, filled, entries, since(start));
  return each <= 100 ? 0 : 1;
}
