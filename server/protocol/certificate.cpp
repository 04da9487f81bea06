#include "server/protocol/certificate.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

#include "lib/log.h"
#include "libzentcat/lib/utils/net.h"
#include "platform/files.h"
#include "platform/identity.h"
#include "platform/whole-file.h"

namespace tolven::server {

namespace {

namespace Net = TolvenApplication::Net;

constexpr const char* kCategory = "server";
constexpr long kValidSeconds = 10L * 365 * 24 * 3600;
constexpr long kClockSkewSeconds = 24 * 3600;
constexpr std::uint32_t kOwnerOnly = 0600;

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Memory = std::unique_ptr<BIO, decltype(&BIO_free_all)>;

Memory NewMemory() { return {BIO_new(BIO_s_mem()), &BIO_free_all}; }

std::string HostName() {
  ustring name;
  int platform_id = 0;
  if (!platform::identity().HostName(name, platform_id).ok() || name.empty()) return "localhost";
  return name.str();
}

void AddName(const std::string& name, std::string& list) {
  const bool address = Net::IsIPv4(name.c_str()) || Net::IsIPv6(name.c_str());
  const std::string entry = (address ? "IP:" : "DNS:") + name;
  // A comma would begin another entry.
  if (name.empty() || name.find(',') != std::string::npos) return;
  if (("," + list + ",").find("," + entry + ",") != std::string::npos) return;
  if (!list.empty()) list += ',';
  list += entry;
}

std::string AlternativeNames(const std::string& host, const std::string& address) {
  std::string list;
  AddName(host, list);
  AddName("localhost", list);
  AddName("127.0.0.1", list);
  AddName("::1", list);
  if (address != "0.0.0.0" && address != "::") AddName(address, list);
  return list;
}

bool AddExtension(X509* certificate, int id, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, id, value.c_str());
  if (extension == nullptr) return false;
  const bool added = X509_add_ext(certificate, extension, -1) == 1;
  X509_EXTENSION_free(extension);
  return added;
}

Certificate SelfSigned(EVP_PKEY* key, const std::string& address) {
  Certificate made(X509_new(), &X509_free);
  const std::string host = HostName();
  const std::string common_name = host.substr(0, 64);  // the most that the field may hold
  unsigned char serial[16];
  if (made == nullptr || RAND_bytes(serial, sizeof serial) != 1) return {nullptr, &X509_free};
  serial[0] &= 0x7F;  // positive
  BIGNUM* const number = BN_bin2bn(serial, sizeof serial, nullptr);
  bool good =
      number != nullptr && BN_to_ASN1_INTEGER(number, X509_get_serialNumber(made.get())) != nullptr;
  BN_free(number);
  X509_NAME* const subject = X509_get_subject_name(made.get());
  good = good && X509_set_version(made.get(), X509_VERSION_3) == 1 &&
         X509_gmtime_adj(X509_getm_notBefore(made.get()), -kClockSkewSeconds) != nullptr &&
         X509_gmtime_adj(X509_getm_notAfter(made.get()), kValidSeconds) != nullptr &&
         X509_set_pubkey(made.get(), key) == 1 &&
         X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                    reinterpret_cast<const unsigned char*>(common_name.c_str()), -1,
                                    -1, 0) == 1 &&
         X509_set_issuer_name(made.get(), subject) == 1 &&
         AddExtension(made.get(), NID_basic_constraints, "critical,CA:FALSE") &&
         AddExtension(made.get(), NID_key_usage, "critical,digitalSignature") &&
         AddExtension(made.get(), NID_ext_key_usage, "serverAuth") &&
         AddExtension(made.get(), NID_subject_key_identifier, "hash") &&
         // Tells it from another one of this host among those that a client trusts.
         AddExtension(made.get(), NID_authority_key_identifier, "keyid:always") &&
         AddExtension(made.get(), NID_subject_alt_name, AlternativeNames(host, address)) &&
         X509_sign(made.get(), key, EVP_sha256()) > 0;
  if (!good) made.reset();
  return made;
}

bool Store(const ustring& path, BIO* content) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(content, &data);
  return size > 0 &&
         platform::ReplaceWholeFile(path, {data, static_cast<std::size_t>(size)}, kOwnerOnly).ok();
}

bool Exists(const ustring& path) {
  platform::NodeInfo info;
  return platform::files().StatTarget(path, info).ok();
}

}  // namespace

int EnsureCertificate(const ustring& certificate_path, const ustring& key_path,
                      const std::string& address) {
  if (Exists(certificate_path) && Exists(key_path)) return 0;
  const Key key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  const Memory key_text = NewMemory(), certificate_text = NewMemory();
  bool good = key != nullptr && key_text != nullptr && certificate_text != nullptr;
  const Certificate certificate =
      good ? SelfSigned(key.get(), address) : Certificate(nullptr, &X509_free);
  good = certificate != nullptr && PEM_write_bio_X509(certificate_text.get(), certificate.get()) &&
         PEM_write_bio_PrivateKey(key_text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
  if (good && Store(key_path, key_text.get()) && Store(certificate_path, certificate_text.get())) {
    (void)platform::files().SetMode(certificate_path, 0644);  // clients trust it by this file
    return 0;
  }
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] certificate(%d): cannot make the certificate '%s'\n", __LINE__,
                 certificate_path);
  return -1;
}

std::string Fingerprint(const ustring& certificate_path) {
  BIO* const file = BIO_new_file(certificate_path.c_str_utf8(), "r");
  if (file == nullptr) return {};
  const Memory source(file, &BIO_free_all);
  const Certificate certificate(PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr),
                                &X509_free);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  if (certificate == nullptr || X509_digest(certificate.get(), EVP_sha256(), digest, &size) != 1) {
    return {};
  }
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    char pair[4];
    std::snprintf(pair, sizeof pair, "%02X", digest[i]);
    if (i > 0) text += ':';
    text += pair;
  }
  return text;
}

}  // namespace tolven::server
