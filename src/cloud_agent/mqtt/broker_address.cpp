#include "cloud_agent/mqtt/broker_address.h"

#include "platform/host_port.h"

namespace agent {
namespace {

constexpr int kPlainPort = 1883;
constexpr int kTlsPort = 8883;
constexpr char kPlainScheme[] = "mqtt";
constexpr char kTlsScheme[] = "mqtts";
constexpr char kSchemeEnd[] = "://";

/// An address as it was written, in its parts.
struct WrittenAddress {
  std::string scheme;  // empty without one
  std::string host_and_port;
};

WrittenAddress Split(const std::string& text) {
  const std::size_t end = text.find(kSchemeEnd);
  if (end == std::string::npos) {
    return {"", text};
  }
  std::string rest = text.substr(end + sizeof(kSchemeEnd) - 1);
  if (!rest.empty() && rest.back() == '/') {
    rest.pop_back();
  }
  return {text.substr(0, end), rest};
}

std::string Mistake(const WrittenAddress& address, bool use_tls) {
  const std::string& scheme = address.scheme;
  if (!scheme.empty() && scheme != kPlainScheme && scheme != kTlsScheme) {
    return "\"" + scheme + "://\" is neither mqtt:// nor mqtts://";
  }
  if (scheme == kPlainScheme && use_tls) {
    return "mqtt://" + address.host_and_port +
           " is without TLS, but --tls, --ca, --cert or another address asks for it";
  }
  if (address.host_and_port.find('@') != std::string::npos) {
    return "an address holds no user name: that is for --username and --password-file";
  }
  if (address.host_and_port.find('/') != std::string::npos) {
    return "\"" + address.host_and_port + "\" has more than a host and a port";
  }
  return "";
}

}  // namespace

std::string BrokerAddress::Text() const { return tarvex::HostAndPortText(host, port); }

std::string ReadBrokerAddresses(const std::vector<std::string>& texts, bool* use_tls,
                                std::vector<BrokerAddress>* addresses) {
  addresses->clear();
  for (const std::string& text : texts) {
    *use_tls = *use_tls || Split(text).scheme == kTlsScheme;
  }
  for (const std::string& text : texts) {
    const WrittenAddress written = Split(text);
    BrokerAddress address;
    address.port = *use_tls ? kTlsPort : kPlainPort;
    std::string mistake = Mistake(written, *use_tls);
    if (mistake.empty()) {
      mistake = tarvex::ParseHostAndPort(written.host_and_port, &address.host, &address.port);
    }
    if (!mistake.empty()) {
      return mistake;
    }
    addresses->push_back(address);
  }
  return addresses->empty() ? "there is no address" : "";
}

}  // namespace agent
