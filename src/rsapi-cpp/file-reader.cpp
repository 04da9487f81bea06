#include "rsapi-cpp/file-reader.h"

#include <cstdio>
#include <new>
#include <utility>

#include "rsapi-cpp/copy-handler.h"
#include "rsapi-cpp/delta-handler.h"
#include "rsapi-cpp/md4-hash-handler.h"
#include "rsapi-cpp/signature-handler.h"

namespace tolven {

FileReader::FileReader() = default;
FileReader::~FileReader() = default;

void FileReader::setCopyHandler(const ustring& path) {
  copy_handler_ = std::make_unique<CopyHandler>(path);
}

void FileReader::setMD4HashHandler(ustring& result) {
  md4_hash_handler_ = std::make_unique<MD4HashHandler>(&result);
}

void FileReader::setSignatureHandler(const ustring& path, std::uint32_t block_size,
                                     std::uint32_t hash_size) {
  signature_handler_ = std::make_unique<SignatureHandler>(path);
  signature_handler_->setBlockSize(block_size);
  signature_handler_->setHashSize(hash_size);
}

void FileReader::setDeltaHandler(const ustring& delta_path, const ustring& signature_path) {
  delta_handler_ = std::make_unique<DeltaHandler>(delta_path, signature_path);
}

void FileReader::setFurtherHandler(std::unique_ptr<Handler> handler) {
  further_handler_ = std::move(handler);
}

template <class Call>
int FileReader::forAll(Call&& call) {
  int result = 0;
  Handler* const handlers[] = {copy_handler_.get(), delta_handler_.get(), signature_handler_.get(),
                               md4_hash_handler_.get(), further_handler_.get()};
  for (Handler* const handler : handlers) {
    if (handler == nullptr) continue;
    try {
      if (call(*handler) < 0) result = ERROR_HANDLER_CALL;
    } catch (const std::bad_alloc&) {
      std::fprintf(stderr, "api (%d): out of memory\n", __LINE__);
      result = ERROR_HANDLER_CALL;
    }
  }
  return result;
}

int FileReader::begin() {
  return forAll([](Handler& handler) { return handler.begin(); });
}

int FileReader::update(const void* data, std::size_t size) {
  return forAll([&](Handler& handler) { return handler.update(data, size); });
}

int FileReader::wait() {
  return forAll([](Handler& handler) { return handler.wait(); });
}

int FileReader::end() {
  return forAll([](Handler& handler) { return handler.end(); });
}

int FileReader::feed(const void* data, std::size_t size) {
  const int updated = update(data, size), waited = wait();
  return updated < 0 ? updated : waited;
}

}  // namespace tolven
