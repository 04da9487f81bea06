#include "lib/utility.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "lib/log.h"
#include "platform/identity.h"
#include "platform/paths.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "utility_debug";
constexpr std::size_t kBase64Buffer = 3072;
constexpr std::size_t kMaxBase64Input = (kBase64Buffer - 1) / 4 * 3;
constexpr std::size_t kMaxUnits = 8192;

// The value of a base64 character, -1 for any other.
constexpr std::array<int, 256> DecodeTable() {
  std::array<int, 256> table{};
  table.fill(-1);
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (std::size_t i = 0; i < alphabet.size(); ++i) {
    table[static_cast<unsigned char>(alphabet[i])] = static_cast<int>(i);
  }
  return table;
}
constexpr auto kDecode = DecodeTable();

}  // namespace

std::unique_ptr<char[]> SzBase64EncBuffer(const void* buf, std::size_t len) {
  if (buf == nullptr) return nullptr;
  len = std::min(len, kMaxBase64Input);
  auto text = std::make_unique<char[]>((len + 2) / 3 * 4 + 1);
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.get()),
                  static_cast<const unsigned char*>(buf), static_cast<int>(len));
  return text;
}

std::unique_ptr<char[]> SzBase64EncOneLine(const char* buf, std::size_t len) {
  if (buf == nullptr) return nullptr;
  return SzBase64EncBuffer(buf, static_cast<std::size_t>(std::find(buf, buf + len, '\0') - buf));
}

int EncBase64Dec(const char* in, std::size_t inlen, void* out, std::size_t& outlen) {
  if (in == nullptr || out == nullptr) return 0;
  const std::size_t capacity = outlen;
  auto* const bytes = static_cast<unsigned char*>(out);
  outlen = 0;
  unsigned bits = 0, count = 0;
  for (std::size_t i = 0; i < inlen && in[i] != '='; ++i) {
    const int value = kDecode[static_cast<unsigned char>(in[i])];
    if (value < 0) return 0;
    bits = bits << 6 | static_cast<unsigned>(value);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    if (outlen == capacity) return 0;
    bytes[outlen++] = static_cast<unsigned char>(bits >> count);
  }
  return 1;
}

ustring HashMD5(const ustring& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  EVP_Digest(text.view().data(), text.size(), digest.data(), &size, EVP_md5(), nullptr);
  std::string hex;
  for (unsigned i = 0; i < size; ++i) {
    hex += "0123456789abcdef"[digest[i] >> 4];
    hex += "0123456789abcdef"[digest[i] & 15];
  }
  return ustring(hex);
}

int UTF8ToNativeStr(const std::string& in, std::u16string& out) {
  const ustring text(in);
  out = text.c_str();
  if (out.size() <= kMaxUnits && (!out.empty() || in.empty())) return 0;
  out.clear();
  return -1;
}

int NativeStrToUTF8(const std::u16string& in, std::string& out) {
  out = in.size() <= kMaxUnits ? ustring(in.c_str()).str() : std::string();
  return out.empty() && !in.empty() ? -1 : 0;
}

int CodePageToNativeStr(const std::string& in, std::u16string& out) {
  out.clear();
  if (in.empty()) return 0;
  if (platform::FromCodePage(in, out).ok() && out.size() <= kMaxUnits) return 0;
  out.clear();
  return -1;
}

int NativeStrToCodePage(const std::u16string& in, std::string& out) {
  out.clear();
  if (in.empty()) return 0;
  if (in.size() <= kMaxUnits && platform::ToCodePage(in, out).ok()) return 0;
  out.clear();
  return -1;
}

void ParseUsrName(ustring& user_name, ustring& domain) {
  std::size_t place = user_name.rfind('/');
  if (place == ustring::npos) place = user_name.rfind('\\');
  if (place == ustring::npos) {
    domain.clear();
    return;
  }
  domain = user_name.substr(0, place);
  user_name = user_name.substr(place + 1);
}

int GetSysHostName(ustring& host) {
  ustring name;
  int platform_id = 0;
  const platform::Status status = platform::identity().HostName(name, platform_id);
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] utility(%d): A system error has occurred: %d\n", __LINE__,
                   status.code);
    return -1;
  }
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] utility(%d): Platform: %d\n", __LINE__,
                 platform_id);
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] utility(%d): Host:   %s\n", __LINE__, name);
  host = name;
  return 0;
}

}  // namespace tolven
