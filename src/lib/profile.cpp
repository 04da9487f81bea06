#include "lib/profile.h"

#include <openssl/evp.h>

#include <array>
#include <cstddef>
#include <string>

#include "platform/files.h"

namespace tolven {

namespace {

constexpr std::size_t kReadSize = 16384;

struct DigestDeleter {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using Digest = std::unique_ptr<EVP_MD_CTX, DigestDeleter>;

bool AddFile(const ustring& path, EVP_MD_CTX* digest) {
  platform::Files& files = platform::files();
  platform::ScopedFile file;
  if (!files.Open(path, platform::OpenMode::kRead, *file.receive()).ok()) return false;
  std::array<char, kReadSize> buffer;
  while (true) {
    std::size_t got = 0;
    if (!files.Read(file.get(), buffer.data(), buffer.size(), got).ok()) return false;
    if (got == 0) return true;
    if (EVP_DigestUpdate(digest, buffer.data(), got) != 1) return false;
  }
}

ustring CalFileMD5(const ustring& path) {
  const Digest digest(EVP_MD_CTX_new());
  if (digest == nullptr || EVP_DigestInit_ex(digest.get(), EVP_md5(), nullptr) != 1) return {};
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned size = 0;
  if (!AddFile(path, digest.get()) || EVP_DigestFinal_ex(digest.get(), bytes.data(), &size) != 1) {
    return {};
  }
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    text += "0123456789abcdef"[bytes[i] >> 4];
    text += "0123456789abcdef"[bytes[i] & 15];
  }
  return ustring(text);
}

}  // namespace

int Profile::LoadFromFile(const ustring& path) {
  if (_black_list == nullptr) _black_list = std::make_unique<BlackList2>();
  (void)_black_list->Load(path);
  _md5 = CalFileMD5(path);
  _path = path;
  return 0;
}

int Profile::TestFilePath(const ustring& path) const {
  return _black_list == nullptr ? 0 : _black_list->TestFilePath(path);
}

int Profile::TestDirectoryPath(const ustring& path) const {
  return _black_list == nullptr ? 0 : _black_list->TestDirectoryPath(path);
}

int Profile::TestFileSize(std::uint64_t size) const {
  return _black_list == nullptr ? 0 : _black_list->TestFileSize(size);
}

int Profile::TestFullPathSize(std::uint64_t size) const {
  return _black_list == nullptr ? 0 : _black_list->TestFullPathSize(size);
}

}  // namespace tolven
