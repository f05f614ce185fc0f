// Certificates that a test makes for itself.
#pragma once

#include <memory>
#include <string>

#include "support/temp_directory.h"

struct evp_pkey_st;
struct x509_st;

/// A certificate and its key, as files in PEM.
struct CertificateFiles {
  std::string certificate;
  std::string key;
};

/// An authority with a certificate and a key of its own. The files live as long as it does.
class CertificateAuthority {
 public:
  struct Validity {
    int from_days = -1;  ///< from now
    int to_days = 1;
  };

  /// Throws std::runtime_error.
  explicit CertificateAuthority(const std::string& name);
  ~CertificateAuthority();
  CertificateAuthority(const CertificateAuthority&) = delete;
  CertificateAuthority& operator=(const CertificateAuthority&) = delete;

  /// The file of its certificate.
  const std::string& certificate() const { return files_.certificate; }

  /// Makes a certificate, of a server or a client.
  /// @param common_name also the name of its files.
  /// @param alternative_names such as "DNS:localhost,IP:127.0.0.1"; empty for none.
  CertificateFiles Issue(const std::string& common_name, const std::string& alternative_names,
                         const Validity& validity);
  CertificateFiles Issue(const std::string& common_name, const std::string& alternative_names) {
    return Issue(common_name, alternative_names, Validity());
  }

 private:
  CertificateFiles Write(const std::string& name, evp_pkey_st* key, x509_st* certificate) const;

  TempDirectory directory_;
  std::shared_ptr<evp_pkey_st> key_;
  std::shared_ptr<x509_st> certificate_;
  CertificateFiles files_;
  long serial_number_ = 1;
};
