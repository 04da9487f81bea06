// Any bytes as a delta: refused, or applied within the announced size, and then its reverse gives
// the basis back.

#include <cstdint>
#include <cstdlib>

#include "rsapi-cpp/api.h"
#include "support/memory-files.h"

namespace {

constexpr std::uint64_t kAnnounced = 1 << 20;

int Patch(const char* basis, const char* delta, const char* target, const char* reverse) {
  tolven::DeltaFileReader reader;
  reader.setFile(basis, delta);
  reader.setNewFile(target);
  reader.setReverseDeltaFile(reverse);
  reader.setMaxSize(kAnnounced);
  return reader.readFile();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tolven::test::MemoryFiles files;
  std::string& basis = files["basis"];
  for (int i = 0; i < 3000; ++i) basis += static_cast<char>(i * i >> 4);
  // Behind the magic, so that every input gets to the commands; the other way round now and then.
  files["delta"] = size % 16 == 0 ? "" : "rs\x02\x36";
  files["delta"].append(reinterpret_cast<const char*>(data), size);
  const int result = Patch("basis", "delta", "new", "reverse");
  if (files["new"].size() > kAnnounced) std::abort();
  if (result != 0) return 0;
  if (Patch("new", "reverse", "again", "unused") != 0) std::abort();
  if (files["again"] != basis) std::abort();
  return 0;
}
