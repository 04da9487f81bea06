// Keys and certificates, made when a test needs them.
#pragma once

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>
#include <string>

#include "support/temp-folder.h"

namespace tolven::test {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

// An authority and a certificate that it has issued to `common_name`, with `alternative_name` (such
// as "DNS:*.example", empty for none), as PEM files.
class Certificates {
 public:
  Certificates(const std::string& common_name, const std::string& alternative_name) {
    const Key authority_key = NewKey();
    const Key server_key = NewKey();
    const Certificate authority =
        Issue("Test authority", authority_key.get(), nullptr, authority_key.get(),
              {{NID_basic_constraints, "critical,CA:TRUE"}});
    std::vector<std::pair<int, std::string>> extensions;
    if (!alternative_name.empty()) extensions.emplace_back(NID_subject_alt_name, alternative_name);
    const Certificate server =
        Issue(common_name, server_key.get(), authority.get(), authority_key.get(), extensions);
    Write(ca(), [&](FILE* out) { return PEM_write_X509(out, authority.get()); });
    Write(certificate(), [&](FILE* out) { return PEM_write_X509(out, server.get()); });
    Write(key(), [&](FILE* out) {
      return PEM_write_PrivateKey(out, server_key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
  }

  ustring ca() const { return folder_ / "ca.pem"; }
  ustring certificate() const { return folder_ / "server.pem"; }
  ustring key() const { return folder_ / "server.key"; }

 private:
  static Key NewKey() { return Key(EVP_EC_gen("P-256"), &EVP_PKEY_free); }

  static Certificate Issue(const std::string& name, EVP_PKEY* key, X509* issuer,
                           EVP_PKEY* issuer_key,
                           const std::vector<std::pair<int, std::string>>& extensions) {
    Certificate made(X509_new(), &X509_free);
    X509_set_version(made.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), issuer == nullptr ? 1 : 2);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), 3600);
    X509_set_pubkey(made.get(), key);
    X509_NAME* const subject = X509_get_subject_name(made.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509_set_issuer_name(made.get(), issuer == nullptr ? subject : X509_get_subject_name(issuer));
    for (const auto& [id, value] : extensions) {
      X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, id, value.c_str());
      X509_add_ext(made.get(), extension, -1);
      X509_EXTENSION_free(extension);
    }
    EXPECT_GT(X509_sign(made.get(), issuer_key, EVP_sha256()), 0);
    return made;
  }

  template <class Writer>
  static void Write(const ustring& path, Writer&& writer) {
    FILE* const out = std::fopen(path.c_str_utf8(), "w");
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(writer(out), 1);
    std::fclose(out);
  }

  TempFolder folder_;
};

}  // namespace tolven::test
