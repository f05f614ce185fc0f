#include "cloud_agent/mqtt/broker_address.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace agent {
namespace {

/// The addresses on one line, "tls" before them where that is used; or what is wrong.
std::string Addresses(const std::vector<std::string>& texts, bool use_tls = false) {
  std::vector<BrokerAddress> addresses;
  const std::string error = ReadBrokerAddresses(texts, &use_tls, &addresses);
  if (!error.empty()) {
    return error;
  }
  std::string line = use_tls ? "tls" : "plain";
  for (const BrokerAddress& address : addresses) {
    line += " " + address.Text();
  }
  return line;
}

TEST(BrokerAddresses, HaveTheUsualPorts) {
  EXPECT_EQ(Addresses({"a", "b:17"}), "plain a:1883 b:17");
  EXPECT_EQ(Addresses({"a", "b:17"}, true), "tls a:8883 b:17");
}

TEST(BrokerAddresses, CanHaveAScheme) {
  EXPECT_EQ(Addresses({"mqtt://a", "mqtt://b:17/"}), "plain a:1883 b:17");
  EXPECT_EQ(Addresses({"mqtts://a", "mqtts://b:17"}), "tls a:8883 b:17");
}

TEST(BrokerAddresses, OfIpv6StandInBrackets) {
  EXPECT_EQ(Addresses({"[::1]", "mqtt://[::1]:17"}), "plain [::1]:1883 [::1]:17");
  EXPECT_EQ(Addresses({"fe80::1"}), "an IPv6 address stands in brackets");
}

TEST(BrokerAddresses, AreAllWithTlsWhereOneIs) {
  EXPECT_EQ(Addresses({"a", "mqtts://b"}), "tls a:8883 b:8883");
}

TEST(BrokerAddresses, ThatContradictEachOtherAreRefused) {
  const std::string refusal =
      "mqtt://a is without TLS, but --tls, --ca, --cert or another address asks for it";
  EXPECT_EQ(Addresses({"mqtt://a"}, true), refusal);
  EXPECT_EQ(Addresses({"mqtt://a", "mqtts://b"}), refusal);
}

TEST(BrokerAddresses, ThatAreNoneAreRefused) {
  EXPECT_EQ(Addresses({"ws://a"}), "\"ws://\" is neither mqtt:// nor mqtts://");
  EXPECT_EQ(Addresses({"mqtt://"}), "\"\" names no host");
  EXPECT_EQ(Addresses({"a", ""}), "\"\" names no host");
  EXPECT_EQ(Addresses({"a:0"}), "\"0\" is no port");
  EXPECT_EQ(Addresses({"mqtt://a/b"}), "\"a/b\" has more than a host and a port");
  EXPECT_EQ(Addresses({"mqtt://cam:secret@a"}),
            "an address holds no user name: that is for --username and --password-file");
  EXPECT_EQ(Addresses({}), "there is no address");
}

}  // namespace
}  // namespace agent
