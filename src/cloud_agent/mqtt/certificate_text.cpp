#include "cloud_agent/mqtt/certificate_text.h"

#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <memory>

namespace agent {
namespace {

/// What OpenSSL prints.
template <typename Print>
std::string Printed(Print print) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> sink(BIO_new(BIO_s_mem()), BIO_free);
  if (sink == nullptr || print(sink.get()) <= 0) {
    return "?";
  }
  char* text = nullptr;
  const long length = BIO_get_mem_data(sink.get(), &text);
  return {text, static_cast<std::size_t>(length)};
}

std::string Text(const X509_NAME* name) {
  return Printed([name](BIO* sink) {
    return X509_NAME_print_ex(sink, name, 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB);
  });
}

std::string Text(const ASN1_TIME* time) {
  return Printed([time](BIO* sink) { return ASN1_TIME_print(sink, time); });
}

std::string Now() {
  const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> now(
      ASN1_TIME_set(nullptr, std::time(nullptr)), ASN1_TIME_free);
  return Text(now.get());
}

/// The names that it is for.
std::string Names(X509* certificate) {
  const int at = X509_get_ext_by_NID(certificate, NID_subject_alt_name, -1);
  if (at < 0) {
    return Text(X509_get_subject_name(certificate));
  }
  return Printed([certificate, at](BIO* sink) {
    return X509V3_EXT_print(sink, X509_get_ext(certificate, at), 0, 0);
  });
}

std::string Subject(X509* certificate, int depth) {
  return depth == 0 ? "the server's certificate"
                    : "the certificate of an authority above the server's, " +
                          Text(X509_get_subject_name(certificate)) + ",";
}

}  // namespace

std::string DistrustText(X509_STORE_CTX* store, const std::string& host) {
  const int error = X509_STORE_CTX_get_error(store);
  X509* const certificate = X509_STORE_CTX_get_current_cert(store);
  if (certificate == nullptr) {
    return std::string("the server's certificate: ") + X509_verify_cert_error_string(error);
  }
  const std::string subject = Subject(certificate, X509_STORE_CTX_get_error_depth(store));
  switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return subject + " has expired, at " + Text(X509_get0_notAfter(certificate)) +
             "; have it renewed, or set this machine's clock, which says " + Now();
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return subject + " is not valid yet, but from " + Text(X509_get0_notBefore(certificate)) +
             "; set this machine's clock, which says " + Now();
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return subject + " is for another host: for " + Names(certificate) + ", not for " + host +
             "; give a name of it as --broker, or the broker another certificate";
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return "the server's certificate comes from an authority that is not trusted, " +
             Text(X509_get_issuer_name(certificate)) + "; give that authority's with --ca";
    default:
      return subject + " is not good: " + X509_verify_cert_error_string(error);
  }
}

}  // namespace agent
