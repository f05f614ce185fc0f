// Where a server listens.
#pragma once

#include <string>

namespace tarvex {

/// A host and a TCP port, held as given: nothing is resolved or checked.
class SocketAddress {
 public:
  SocketAddress(const std::string& host, int port) : host_(host), port_(port) {}

  const std::string& host() const { return host_; }
  int port() const { return port_; }

 private:
  std::string host_;
  int port_;
};

}  // namespace tarvex
