// TLS with a real broker: what is let through, and what is said of the rest.
#include <fstream>

#include "rig_test.h"
#include "support/certificates.h"
#include "support/loopback_port.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kHere[] = "DNS:localhost,IP:127.0.0.1";

class Tls : public RigTest {
 protected:
  /// A broker with a port without TLS, for the test's client, and one with it.
  void StartBroker(const CertificateFiles& files, const std::vector<std::string>& more = {}) {
    tls_port_ = FreeLoopbackPort();
    std::vector<std::string> settings = {"allow_anonymous true",
                                         "user root",
                                         "listener " + std::to_string(tls_port_) + " 127.0.0.1",
                                         "certfile " + files.certificate,
                                         "keyfile " + files.key,
                                         "cafile " + authority_.certificate()};
    settings.insert(settings.end(), more.begin(), more.end());
    broker_ = std::make_unique<MqttBroker>(settings);
    rig_.cloud = std::make_unique<MqttClient>(broker_->port(), "cameras/#");
  }

  void StartBrokerOf(const CertificateAuthority::Validity& validity) {
    StartBroker(authority_.Issue("broker", kHere, validity));
  }

  std::vector<std::string> Trusting(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> options = {"--ca", authority_.certificate()};
    options.insert(options.end(), more.begin(), more.end());
    return options;
  }

  /// The agent is not let in; it says why, and tries again.
  void ExpectRefusal(const std::vector<std::string>& options, int port, const std::string& why) {
    rig_.LaunchAgent(options, port);
    const std::string line = "no connection to 127.0.0.1:" + std::to_string(port) + ": " + why;
    EXPECT_TRUE(AgentPrints(line)) << line;
    EXPECT_TRUE(WaitUntil([&] {
      const std::string log = rig_.agent->Output();
      return log.find(line, log.find(line) + 1) != std::string::npos;
    })) << "it does not try again";
    EXPECT_THAT(rig_.agent->Output(), Not(HasSubstr("connected to")));
    EXPECT_THAT(rig_.agent->Output(), Not(HasSubstr("MQTT 3.1.1"))) << "it is not the version";
  }

  CertificateAuthority authority_{"Authority of the broker"};
  std::unique_ptr<MqttBroker> broker_;
  int tls_port_ = 0;
};

TEST_F(Tls, LetsTheAgentInWhereTheCertificateIsGood) {
  StartBrokerOf({});
  rig_.StartAgent(Trusting(), tls_port_);
}

TEST_F(Tls, LetsTheAgentInByNameAndWithAnAddressOfMqtts) {
  StartBroker(authority_.Issue("broker", "DNS:localhost"));
  rig_.StartAgent(Trusting({"--broker", "mqtts://localhost:" + std::to_string(tls_port_)}),
                  tls_port_);
  EXPECT_THAT(rig_.agent->Output(), HasSubstr("is for another host"));
  EXPECT_THAT(rig_.agent->Output(), HasSubstr("connected to localhost:"));
}

TEST_F(Tls, LetsTheAgentInWhereTheCommonNameIsTheAddress) {
  StartBroker(authority_.Issue("127.0.0.1", ""));
  rig_.StartAgent(Trusting(), tls_port_);
}

TEST_F(Tls, LetsTheAgentInWithItsCertificate) {
  StartBroker(authority_.Issue("broker", kHere), {"require_certificate true"});
  const CertificateFiles client = authority_.Issue("camera", "");
  rig_.StartAgent(Trusting({"--cert", client.certificate, "--key", client.key}), tls_port_);
}

TEST_F(Tls, SaysThatTheAuthorityIsUnknown) {
  StartBrokerOf({});
  ExpectRefusal({"--tls"}, tls_port_,
                "the server's certificate comes from an authority that is not trusted, CN = "
                "Authority of the broker; give that authority's with --ca");
}

TEST_F(Tls, SaysThatTheAuthorityIsAnother) {
  StartBrokerOf({});
  const CertificateAuthority other("Another authority");
  ExpectRefusal({"--ca", other.certificate()}, tls_port_,
                "the server's certificate comes from an authority that is not trusted, CN = "
                "Authority of the broker");
}

TEST_F(Tls, SaysThatTheCertificateHasExpired) {
  StartBrokerOf({-3, -1});
  ExpectRefusal(Trusting(), tls_port_, "the server's certificate has expired, at ");
  EXPECT_THAT(rig_.agent->Output(), HasSubstr("; have it renewed, or set this machine's clock"));
}

TEST_F(Tls, SaysThatTheCertificateIsNotValidYet) {
  StartBrokerOf({1, 3});
  ExpectRefusal(Trusting(), tls_port_, "the server's certificate is not valid yet, but from ");
  EXPECT_THAT(rig_.agent->Output(), HasSubstr("; set this machine's clock, which says "));
}

TEST_F(Tls, SaysThatTheCertificateIsForAnotherHost) {
  StartBroker(authority_.Issue("127.0.0.1", "DNS:elsewhere.example,IP:192.0.2.1"));
  ExpectRefusal(Trusting(), tls_port_,
                "the server's certificate is for another host: for DNS:elsewhere.example, IP "
                "Address:192.0.2.1, not for 127.0.0.1; give a name of it as --broker");
}

TEST_F(Tls, SaysThatTheBrokerWantsACertificate) {
  for (const char* const version : {"tlsv1.2", "tlsv1.3"}) {
    StartBroker(authority_.Issue("broker", kHere),
                {"require_certificate true", std::string("tls_version ") + version});
    ExpectRefusal(Trusting(), tls_port_,
                  "the broker wants a client certificate; give one with --cert and --key");
  }
}

TEST_F(Tls, SaysThatTheBrokerRefusesTheCertificate) {
  StartBroker(authority_.Issue("broker", kHere), {"require_certificate true"});
  CertificateAuthority other("Another authority");
  const CertificateFiles client = other.Issue("camera", "");
  ExpectRefusal(Trusting({"--cert", client.certificate, "--key", client.key}), tls_port_,
                "the broker refuses the client certificate " + client.certificate +
                    ": unknown CA (TLS alert 48)");
}

TEST_F(Tls, SaysThatThePortHasNone) {
  StartBrokerOf({});
  ExpectRefusal(Trusting(), broker_->port(),
                "the server has no TLS at that port; give the port that has it, usually 8883");
}

TEST_F(Tls, SaysThatNobodyListens) {
  const int port = FreeLoopbackPort();
  ExpectRefusal(Trusting(), port, "Connection refused");
}

TEST_F(Tls, IsMissedByAnAgentWithout) {
  StartBrokerOf({});
  ExpectRefusal({"--mqtt-version", "5"}, tls_port_,
                "the server ends the connection on CONNECT of MQTT 5 without an answer; look "
                "whether the broker is in order, and whether the port is one with TLS");
}

TEST_F(Tls, SaysWhichFileCannotBeUsed) {
  const CertificateFiles one = authority_.Issue("one", "");
  const CertificateFiles two = authority_.Issue("two", "");
  ExpectRefusal(Trusting({"--cert", one.certificate, "--key", two.key}), rig_.broker.port(),
                "--key " + two.key + " is no key of --cert " + one.certificate);
  ExpectRefusal({"--ca", one.key}, rig_.broker.port(),
                "no certificates can be read from --ca " + one.key);
}

}  // namespace
