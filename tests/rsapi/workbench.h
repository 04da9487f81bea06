// Signatures, deltas and patches of strings, through files in a folder of the test's own.
#pragma once

#include <random>
#include <string>

#include "rsapi-cpp/api.h"
#include "support/temp-folder.h"

namespace tolven::test {

using Random = std::mt19937;

inline std::string RandomText(Random& random, std::size_t size, int letters = 256) {
  std::string text(size, '\0');
  for (char& c : text) c = static_cast<char>(random() % static_cast<unsigned>(letters));
  return text;
}

// `text` after up to four changes: something put in, taken out, moved or overwritten.
inline std::string Edited(Random& random, std::string text, int letters = 256) {
  for (auto edits = random() % 5; edits > 0; --edits) {
    const std::size_t at = random() % (text.size() + 1);
    const std::size_t size = random() % (text.size() / 3 + 2);
    const std::string part = text.substr(at, size);
    switch (random() % 4) {
      case 0:
        text.insert(at, RandomText(random, size, letters));
        break;
      case 1:
        text.erase(at, size);
        break;
      case 2:
        text.erase(at, size).insert(random() % (text.size() + 1), part);
        break;
      default:
        text.replace(at, size, RandomText(random, part.size(), letters));
    }
  }
  return text;
}

struct Workbench {
  TempFolder folder;
  int result = 0;  // of the last call

  ustring Put(const std::string& name, const std::string& content) {
    WriteFile(folder / name, content);
    return folder / name;
  }
  std::string Signature(const std::string& content, std::uint32_t block, std::uint32_t hash) {
    SimpleFileReader reader;
    reader.setFile(Put("basis", content));
    reader.setSignature(folder / "signature", block, hash);
    result = reader.readFile();
    return ReadFile(folder / "signature");
  }
  std::string Delta(const std::string& signature, const std::string& content) {
    SimpleFileReader reader;
    reader.setFile(Put("new", content));
    reader.setDelta(folder / "delta", Put("signature", signature));
    result = reader.readFile();
    return ReadFile(folder / "delta");
  }
  std::string Patch(const std::string& basis, const std::string& delta,
                    std::uint64_t max_size = UINT64_MAX) {
    DeltaFileReader reader;
    reader.setFile(Put("basis", basis), Put("delta", delta));
    reader.setNewFile(folder / "patched");
    reader.setReverseDeltaFile(folder / "reverse");
    reader.setMaxSize(max_size);
    result = reader.readFile();
    return ReadFile(folder / "patched");
  }
};

}  // namespace tolven::test
