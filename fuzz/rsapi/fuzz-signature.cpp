// Any bytes as a signature: refused, or the delta made against it is well-formed and copies from
// nowhere but its blocks. The input's end is also taken as two files that are signed, told apart
// and put together again.

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "rsapi-cpp/api.h"
#include "support/memory-files.h"

namespace {

using namespace tolven;

int MakeDelta(const char* content) {
  SimpleFileReader reader;
  reader.setFile(content);
  reader.setDelta("delta", "signature");
  return reader.readFile();
}

int Patch(const char* basis) {
  DeltaFileReader reader;
  reader.setFile(basis, "delta");
  reader.setNewFile("patched");
  return reader.readFile();
}

void Require(bool held) {
  if (!held) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 12) return 0;
  test::MemoryFiles files;
  const std::string input(reinterpret_cast<const char*>(data), size);
  files["signature"] = "rs\x01\x36" + input;
  files["content"] = input + input.substr(size / 3) + std::string(3000, '\0') + input;
  if (MakeDelta("content") == 0) {
    // A basis as large as the blocks of the signature can be.
    const std::size_t block = static_cast<std::size_t>(data[2]) << 8 | data[3];
    const std::size_t count = (size - 8) / (4 + data[7]);
    if (data[0] == 0 && data[1] == 0 && block * count < 1 << 20) {
      files["basis"] = std::string(block * count, 'b');
      Require(Patch("basis") == 0);
      Require(files["patched"].size() == files["content"].size());
    }
  }
  files["left"] = input.substr(0, size / 2);
  files["right"] = input.substr(size / 2);
  SimpleFileReader signer;
  signer.setFile("left");
  signer.setSignature("signature", 1 + data[0] % 80, 1 + data[1] % 16);
  Require(signer.readFile() == 0);
  Require(MakeDelta("right") == 0 && Patch("left") == 0);
  // A strong sum of a few bytes may deceive, and the length is right nevertheless.
  Require(files["patched"].size() == files["right"].size());
  Require(data[1] % 16 < 8 || files["patched"] == files["right"]);
  return 0;
}
