// TLS of a connection to a broker: what is checked, and why it failed.
#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;
struct ssl_st;
struct x509_store_ctx_st;

namespace agent {

struct TlsFiles {
  std::string ca;    ///< certificates to trust; empty: the system's
  std::string cert;  ///< the client's, with key, or neither
  std::string key;
};

/// For one connection, which it outlives; used on one thread at a time. The server's certificate
/// must come from an authority that is trusted, and be for the host. TLS 1.2 at least.
class TlsContext {
 public:
  /// Throws std::runtime_error when a file cannot be used; it says which and why.
  /// @param host a name, or an IP address without brackets.
  TlsContext(const TlsFiles& files, const std::string& host);
  ~TlsContext();
  TlsContext(const TlsContext&) = delete;
  TlsContext& operator=(const TlsContext&) = delete;

  ssl_ctx_st* handle() const { return context_.get(); }

  /// Why there is no TLS, and what to do about it; empty where TLS has nothing to do with it.
  std::string Failure() const;

  /// Whether TLS stands.
  bool is_done() const { return is_done_; }

  /// What the socket has failed with (errno) during the handshake; 0: it has not.
  int socket_error() const { return socket_error_; }

 private:
  struct Free {
    void operator()(ssl_ctx_st* context) const;
  };

  void LoadFiles();
  void CheckHost(const std::string& host);
  static int OnVerified(int is_good, x509_store_ctx_st* store);
  static void OnProgress(const ssl_st* ssl, int where, int value);
  bool IsNamedAsBefore(x509_store_ctx_st* store) const;
  std::string AlertText() const;

  const TlsFiles files_;
  const std::string host_;
  bool is_host_an_ip_ = false;
  std::unique_ptr<ssl_ctx_st, Free> context_;

  // What the handshake has shown.
  std::string distrust_;  // of the server's certificate
  int alert_ = 0;         // the server's
  bool has_begun_ = false;
  bool has_answered_ = false;
  bool is_done_ = false;
  bool wants_certificate_ = false;
  int socket_error_ = 0;
};

}  // namespace agent
