// Where brokers are, as people write it.
#pragma once

#include <string>
#include <vector>

namespace agent {

struct BrokerAddress {
  std::string host = "127.0.0.1";  ///< a name, or an address without brackets
  int port = 1883;

  /// "HOST:PORT", an IPv6 address in brackets.
  std::string Text() const;
};

/// Reads addresses of the forms HOST[:PORT], mqtt://HOST[:PORT] and mqtts://HOST[:PORT]. All of
/// them are with TLS, or none is, so that no password goes out in clear by mistake.
/// @param use_tls whether TLS is wanted anyway; set where an address begins with mqtts.
/// @return empty, or what is wrong; the rest is undefined then.
std::string ReadBrokerAddresses(const std::vector<std::string>& texts, bool* use_tls,
                                std::vector<BrokerAddress>* addresses);

}  // namespace agent
