// One pass over contents that feeds any set of handlers: a copy, a delta, a signature and the
// whole-file MD4. What the contents are is up to the derived class.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "ustring/ustring.h"

namespace tolven {

class CopyHandler;
class DeltaHandler;
class Handler;
class MD4HashHandler;
class SignatureHandler;

// Set up, run once with readFile(), destroyed. Confined to one thread; only the abort flag may be
// touched by another. After a failure the files that the handlers made are partial, and whoever
// named them deletes them.
class FileReader {
 public:
  using string_type = ustring;

  // Negative results of readFile(); 0 is success.
  enum : int {
    ERROR_ARGUMENT = -1,      // a file that is needed was not named
    ERROR_SYSTEM_CALL = -2,   // a source could not be opened or read, or no memory
    ERROR_HANDLER_CALL = -3,  // a handler failed: a bad signature, no space for its output
    ERROR_ABORT = -4,         // the abort flag was set
    ERROR_FILE_FORMAT = -5,   // the delta is malformed, or makes more than it may
  };

  // Contents are read and handed on in pieces of this many bytes.
  static constexpr std::size_t kPieceSize = 0x100000;

  virtual ~FileReader();
  FileReader(const FileReader&) = delete;
  FileReader& operator=(const FileReader&) = delete;

  // Looked at before each piece; not owned, null for none.
  void setAbortFlag(const std::atomic<int>* flag) { abort_flag_ = flag; }

  // Each replaces a former handler of its kind. `result` is written when the pass ends and must
  // outlive the reader's run.
  void setCopyHandler(const ustring& path);
  void setMD4HashHandler(ustring& result);
  void setSignatureHandler(const ustring& path, std::uint32_t block_size, std::uint32_t hash_size);
  void setDeltaHandler(const ustring& delta_path, const ustring& signature_path);

  // For one consumer of another kind, which comes behind the others.
  void setFurtherHandler(std::unique_ptr<Handler> handler);

  virtual int readFile() = 0;

  // These go to all handlers, in the order copy, delta, signature, MD4, also when one of them
  // fails, and return 0 or ERROR_HANDLER_CALL. Between update() and wait() a handler may still be
  // writing from the bytes it was given.
  int begin();
  int update(const void* data, std::size_t size);
  int wait();
  int end();

 protected:
  FileReader();

  bool aborted() const { return abort_flag_ != nullptr && *abort_flag_ != 0; }
  // update() and then wait(), whatever the former gave: `data` is free afterwards.
  int feed(const void* data, std::size_t size);

 private:
  template <class Call>
  int forAll(Call&& call);

  const std::atomic<int>* abort_flag_ = nullptr;
  std::unique_ptr<CopyHandler> copy_handler_;
  std::unique_ptr<MD4HashHandler> md4_hash_handler_;
  std::unique_ptr<SignatureHandler> signature_handler_;
  std::unique_ptr<DeltaHandler> delta_handler_;
  std::unique_ptr<Handler> further_handler_;
};

}  // namespace tolven
