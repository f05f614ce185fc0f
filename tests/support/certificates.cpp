#include "support/certificates.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <stdexcept>

namespace {

constexpr long kDay_s = 24L * 60 * 60;

void RequireSuccess(bool is_done, const char* what) {
  if (!is_done) {
    throw std::runtime_error(std::string("a certificate cannot be made: ") + what);
  }
}

std::shared_ptr<EVP_PKEY> NewKey() {
  std::shared_ptr<EVP_PKEY> key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"), EVP_PKEY_free);
  RequireSuccess(key != nullptr, "key");
  return key;
}

void AddExtension(X509* certificate, int kind, const std::string& value) {
  X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
  RequireSuccess(extension != nullptr, value.c_str());
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

std::shared_ptr<X509> NewCertificate(const std::string& common_name, EVP_PKEY* key, long number,
                                     const CertificateAuthority::Validity& validity) {
  std::shared_ptr<X509> certificate(X509_new(), X509_free);
  RequireSuccess(certificate != nullptr, "certificate");
  X509_set_version(certificate.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), number);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), validity.from_days * kDay_s);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), validity.to_days * kDay_s);
  X509_set_pubkey(certificate.get(), key);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(common_name.c_str()), -1, -1,
                             0);
  return certificate;
}

template <typename Write>
std::string WritePem(const std::string& path, Write write) {
  FILE* const file = std::fopen(path.c_str(), "w");
  RequireSuccess(file != nullptr, path.c_str());
  const bool is_written = write(file) == 1;
  std::fclose(file);
  RequireSuccess(is_written, path.c_str());
  return path;
}

}  // namespace

CertificateAuthority::CertificateAuthority(const std::string& name) : key_(NewKey()) {
  certificate_ = NewCertificate(name, key_.get(), serial_number_, {-30, 30});
  X509_set_issuer_name(certificate_.get(), X509_get_subject_name(certificate_.get()));
  AddExtension(certificate_.get(), NID_basic_constraints, "critical,CA:TRUE");
  RequireSuccess(X509_sign(certificate_.get(), key_.get(), EVP_sha256()) > 0, "signature");
  files_ = Write("authority", key_.get(), certificate_.get());
}

CertificateAuthority::~CertificateAuthority() = default;

CertificateFiles CertificateAuthority::Issue(const std::string& common_name,
                                             const std::string& alternative_names,
                                             const Validity& validity) {
  const std::shared_ptr<EVP_PKEY> key = NewKey();
  const std::shared_ptr<X509> certificate =
      NewCertificate(common_name, key.get(), ++serial_number_, validity);
  X509_set_issuer_name(certificate.get(), X509_get_subject_name(certificate_.get()));
  if (!alternative_names.empty()) {
    AddExtension(certificate.get(), NID_subject_alt_name, alternative_names);
  }
  RequireSuccess(X509_sign(certificate.get(), key_.get(), EVP_sha256()) > 0, "signature");
  return Write(common_name, key.get(), certificate.get());
}

CertificateFiles CertificateAuthority::Write(const std::string& name, EVP_PKEY* key,
                                             X509* certificate) const {
  const std::string base = (directory_.path() / name).string();
  return {WritePem(base + ".pem", [=](FILE* file) { return PEM_write_X509(file, certificate); }),
          WritePem(base + ".key", [=](FILE* file) {
            return PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr);
          })};
}
