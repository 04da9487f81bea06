// Reads one file from its beginning to its end for the handlers.
#pragma once

#include "rsapi-cpp/file-reader.h"

namespace tolven {

class SimpleFileReader : public FileReader {
 public:
  void setFile(const ustring& path) { file_ = path; }
  // The file's content goes to `path`, which is created or replaced.
  void setCopyFile(const ustring& path) { setCopyHandler(path); }
  // `hash` becomes the MD4 of the content, as 32 lowercase hexadecimal digits.
  void setHashString(ustring& hash) { setMD4HashHandler(hash); }
  // A signature of the content goes to `path`. The whole system uses blocks of 2048 bytes and
  // strong sums of 8.
  void setSignature(const ustring& path, std::uint32_t block_size, std::uint32_t hash_size) {
    setSignatureHandler(path, block_size, hash_size);
  }
  // A delta goes to `delta` that makes the content out of the file which `signature` is of.
  void setDelta(const ustring& delta, const ustring& signature) {
    setDeltaHandler(delta, signature);
  }

  // 0 or one of the negative codes of FileReader. No file named is ERROR_ARGUMENT.
  int readFile() override;

  // Bytes that the handlers have taken.
  std::uint64_t getProcessedSize() const { return processed_size_; }

 private:
  int readPieces();

  ustring file_;
  std::uint64_t processed_size_ = 0;
};

}  // namespace tolven
