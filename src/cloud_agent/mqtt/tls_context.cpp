#include "cloud_agent/mqtt/tls_context.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <stdexcept>

#include "cloud_agent/mqtt/certificate_text.h"

namespace agent {
namespace {

constexpr char kSystemCertificates[] = "/etc/ssl/certs";

[[noreturn]] void ThrowLibraryError(const std::string& what) {
  const unsigned long error = ERR_peek_last_error();
  const char* const reason = error != 0 ? ERR_reason_error_string(error) : nullptr;
  ERR_clear_error();
  throw std::runtime_error(what + (reason != nullptr ? std::string(": ") + reason : ""));
}

bool IsIpAddress(const std::string& host) {
  unsigned char address[sizeof(in6_addr)];
  return inet_pton(AF_INET, host.c_str(), address) == 1 ||
         inet_pton(AF_INET6, host.c_str(), address) == 1;
}

/// Of a TLS context that is this program's.
int OwnerIndex() {
  static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

TlsContext* OwnerOf(const SSL* ssl) {
  return static_cast<TlsContext*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), OwnerIndex()));
}

}  // namespace

void TlsContext::Free::operator()(ssl_ctx_st* context) const { SSL_CTX_free(context); }

TlsContext::TlsContext(const TlsFiles& files, const std::string& host)
    : files_(files),
      host_(host),
      is_host_an_ip_(IsIpAddress(host)),
      context_(SSL_CTX_new(TLS_client_method())) {
  if (context_ == nullptr || SSL_CTX_set_ex_data(handle(), OwnerIndex(), this) != 1 ||
      SSL_CTX_set_min_proto_version(handle(), TLS1_2_VERSION) != 1) {
    ThrowLibraryError("TLS");
  }
  SSL_CTX_set_mode(handle(), SSL_MODE_RELEASE_BUFFERS);  // a connection at rest keeps none
  LoadFiles();
  CheckHost(host);
  SSL_CTX_set_verify(handle(), SSL_VERIFY_PEER, OnVerified);
  SSL_CTX_set_info_callback(handle(), OnProgress);
}

TlsContext::~TlsContext() = default;

void TlsContext::LoadFiles() {
  // Nobody is there to be asked for the password of a key.
  SSL_CTX_set_default_passwd_cb(handle(), [](char*, int, int, void*) { return -1; });
  const bool has_ca = !files_.ca.empty();
  if (SSL_CTX_load_verify_locations(handle(), has_ca ? files_.ca.c_str() : nullptr,
                                    has_ca ? nullptr : kSystemCertificates) != 1) {
    ThrowLibraryError("no certificates can be read from --ca " + files_.ca);
  }
  if (files_.cert.empty()) {
    return;
  }
  if (SSL_CTX_use_certificate_chain_file(handle(), files_.cert.c_str()) != 1) {
    ThrowLibraryError("no certificate can be read from --cert " + files_.cert);
  }
  if (SSL_CTX_use_PrivateKey_file(handle(), files_.key.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_check_private_key(handle()) != 1) {
    ThrowLibraryError("--key " + files_.key + " is no key of --cert " + files_.cert +
                      " that can be read without a password");
  }
}

void TlsContext::CheckHost(const std::string& host) {
  X509_VERIFY_PARAM* const checked = SSL_CTX_get0_param(handle());
  X509_VERIFY_PARAM_set_hostflags(checked, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  const int is_set = is_host_an_ip_ ? X509_VERIFY_PARAM_set1_ip_asc(checked, host.c_str())
                                    : X509_VERIFY_PARAM_set1_host(checked, host.c_str(), 0);
  if (is_set != 1) {
    ThrowLibraryError("no certificate can be for " + host);
  }
}

int TlsContext::OnVerified(int is_good, X509_STORE_CTX* store) {
  TlsContext* const self = OwnerOf(static_cast<const SSL*>(
      X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx())));
  if (is_good != 0) {
    return 1;
  }
  if (self->IsNamedAsBefore(store)) {
    X509_STORE_CTX_set_error(store, X509_V_OK);
    return 1;
  }
  self->distrust_ = DistrustText(store, self->host_);
  return 0;
}

/// Whether a certificate without subject alternative names has the IP address as its common
/// name: no certificate of today, but many a broker in a local network has one.
bool TlsContext::IsNamedAsBefore(X509_STORE_CTX* store) const {
  X509* const certificate = X509_STORE_CTX_get_current_cert(store);
  return X509_STORE_CTX_get_error(store) == X509_V_ERR_IP_ADDRESS_MISMATCH &&
         certificate != nullptr && X509_get_ext_by_NID(certificate, NID_subject_alt_name, -1) < 0 &&
         X509_check_host(certificate, host_.c_str(), 0, 0, nullptr) == 1;
}

void TlsContext::OnProgress(const SSL* ssl, int where, int value) {
  TlsContext* const self = OwnerOf(ssl);
  self->has_begun_ = true;
  if ((where & SSL_CB_READ_ALERT) == SSL_CB_READ_ALERT) {
    const int alert = value & 0xFF;
    self->alert_ = alert != SSL3_AD_CLOSE_NOTIFY && self->alert_ == 0 ? alert : self->alert_;
  } else if ((where & SSL_CB_LOOP) != 0) {
    const OSSL_HANDSHAKE_STATE state = SSL_get_state(ssl);
    self->has_answered_ = self->has_answered_ || state == TLS_ST_CR_SRVR_HELLO;
    self->wants_certificate_ = self->wants_certificate_ || state == TLS_ST_CR_CERT_REQ;
  } else if ((where & SSL_CB_HANDSHAKE_DONE) != 0) {
    self->is_done_ = true;
  } else if (where == SSL_CB_CONNECT_EXIT && value < 0 && !self->is_done_ &&
             self->socket_error_ == 0 && BIO_should_retry(SSL_get_rbio(ssl)) == 0 &&
             ERR_peek_error() == 0) {
    self->socket_error_ = errno != 0 ? errno : EPIPE;
  }
}

std::string TlsContext::Failure() const {
  if (!distrust_.empty()) {
    return distrust_;
  }
  if (alert_ != 0) {
    return AlertText();
  }
  const bool is_cut_off =
      socket_error_ == 0 || socket_error_ == ECONNRESET || socket_error_ == EPIPE;
  if (has_begun_ && !has_answered_ && is_cut_off) {
    return "the server has no TLS at that port; give the port that has it, usually 8883, or leave "
           "TLS away (mqtt://)";
  }
  return "";
}

std::string TlsContext::AlertText() const {
  const std::string alert = std::string(SSL_alert_desc_string_long(alert_)) + " (TLS alert " +
                            std::to_string(alert_) + ")";
  if (alert_ == SSL_AD_PROTOCOL_VERSION) {
    return "the server has neither TLS 1.2 nor 1.3: " + alert;
  }
  if (wants_certificate_ && files_.cert.empty()) {
    return "the broker wants a client certificate; give one with --cert and --key";
  }
  if (wants_certificate_) {
    return "the broker refuses the client certificate " + files_.cert + ": " + alert +
           "; look at its dates, and whether the broker trusts its authority";
  }
  return "the server refuses TLS: " + alert;
}

}  // namespace agent
