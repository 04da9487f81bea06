// Puts a file together from a basis and a delta, and feeds it to the handlers.
#pragma once

#include <memory>

#include "rsapi-cpp/file-reader.h"

namespace tolven {

class DeltaFileReaderImpl;

class DeltaFileReader : public FileReader {
 public:
  DeltaFileReader();
  ~DeltaFileReader() override;

  void setFile(const ustring& basis, const ustring& patch);
  // Where the new file goes; created or replaced.
  void setNewFile(const ustring& path) { setCopyHandler(path); }
  // A delta goes to `path` that turns the new file back into the basis.
  void setReverseDeltaFile(const ustring& path);
  // `hash` becomes the MD4 of the new file, as 32 lowercase hexadecimal digits.
  void setHashString(ustring& hash) { setMD4HashHandler(hash); }
  // A signature of the new file goes to `path`.
  void setSignature(const ustring& path, std::uint32_t block_size, std::uint32_t hash_size) {
    setSignatureHandler(path, block_size, hash_size);
  }
  // How long the new file was announced to be. A delta that would make more ends with
  // ERROR_FILE_FORMAT before the handlers get a byte above it: a few bytes of delta can ask for
  // the basis any number of times. Without a call there is no limit.
  void setMaxSize(std::uint64_t size);

  // 0 or one of the negative codes of FileReader: ERROR_ARGUMENT without a basis or patch,
  // ERROR_FILE_FORMAT for a delta with a wrong magic, a reserved command or a missing rest,
  // ERROR_SYSTEM_CALL for one that asks for more than the basis holds.
  int readFile() override;

 private:
  friend class DeltaFileReaderImpl;

  const std::unique_ptr<DeltaFileReaderImpl> impl_;
};

}  // namespace tolven
