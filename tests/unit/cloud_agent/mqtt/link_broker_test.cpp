// Which of its brokers a link goes to, and what it says of one that does not let it in.
#include "mqtt/link_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <array>
#include <stdexcept>
#include <string>

namespace agent {
namespace {

using ::testing::HasSubstr;

TEST_F(LinkTest, TriesItsAddressesInTurnWithoutDelay) {
  options_.backoff_min_ms = options_.backoff_max_ms = 3600000;
  options_.broker.version = MqttVersion::k5;
  options_.broker.addresses = {{"127.0.0.1", silent_.port()}, {"127.0.0.1", broker_.port()}};
  StartLink();
  silent_.Accept().Close();
  broker_.Accept().LetIn();
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, BeginsWithTheAddressThatWorked) {
  options_.broker.version = MqttVersion::k5;
  options_.broker.addresses = {{"127.0.0.1", silent_.port()}, {"127.0.0.1", broker_.port()}};
  StartLink();
  silent_.Accept().Close();
  broker_.Accept().LetIn();
  EXPECT_EQ(Heard(), "up");
  EXPECT_EQ(Heard(), "down");
  broker_.Accept().LetIn();
  EXPECT_EQ(Heard(), "up");
  EXPECT_FALSE(silent_.HasCaller());
}

TEST_F(LinkTest, SaysWhichBrokerALineOfTheLogIsAbout) {
  options_.broker.addresses = {{"127.0.0.1", silent_.port()}, {"127.0.0.1", broker_.port()}};
  options_.broker.version = MqttVersion::k5;
  const std::string log = LogOf([this] {
    StartLink();
    {
      BrokerSession session = silent_.Accept();
      session.ExpectConnect();
      session.SendConnack(0x87);
    }
    broker_.Accept().LetIn();
    EXPECT_EQ(Heard(), "up");
    EXPECT_EQ(Heard(), "down");
  });
  const std::string first = "127.0.0.1:" + std::to_string(silent_.port());
  const std::string second = "127.0.0.1:" + std::to_string(broker_.port());
  EXPECT_THAT(log, HasSubstr("no connection to " + first +
                             ": the broker refuses: Not authorized (0x87); look at --username"));
  EXPECT_THAT(log, HasSubstr("trying " + second));
  EXPECT_THAT(log, HasSubstr("connected to " + second + " as CAM1, with MQTT 5"));
}

TEST_F(LinkTest, LeavesABrokerThatNeverAnswersConnect) {
  options_.broker.answer_timeout_s = 1;
  const std::string log = LogOf([this] {
    StartLink();
    BrokerSession silent = broker_.Accept();
    EXPECT_EQ(silent.ExpectConnect().version, 5);
    BrokerSession session = broker_.Accept();
    EXPECT_EQ(session.ExpectConnect().version, 5) << "silence says nothing of the version";
    session.SendConnack(0);
    session.ExpectSubscribe();
    EXPECT_EQ(Heard(), "up");
  });
  EXPECT_THAT(log, HasSubstr("takes the connection and does not answer CONNECT in 1 s; look "));
}

TEST_F(LinkTest, SaysThatASubscriptionIsNotAnswered) {
  options_.broker.answer_timeout_s = 1;
  const std::string log = LogOf([this] {
    StartLink();
    BrokerSession session = broker_.Accept();
    session.ExpectConnect();
    session.SendConnack(0);
    broker_.Accept();
  });
  EXPECT_THAT(log,
              HasSubstr("does not answer the subscription to requests in 1 s; look at its load"));
}

TEST_F(LinkTest, SaysThatTheConnectionEndsOnTheSubscription) {
  const std::string log = LogOf([this] {
    StartLink();
    {
      BrokerSession session = broker_.Accept();
      session.ExpectConnect();
      session.SendConnack(0);
      EXPECT_EQ(session.Read().type, 8);
    }
    broker_.Accept();
  });
  EXPECT_THAT(log, HasSubstr("the broker ends the connection on the subscription to requests"));
}

TEST_F(LinkTest, SaysThatTlsDoesNotBegin) {
  options_.broker.answer_timeout_s = 1;
  options_.broker.use_tls = true;
  const std::string log = LogOf([this] {
    StartLink();
    BrokerSession silent = broker_.Accept();
    broker_.Accept();
  });
  EXPECT_THAT(log, HasSubstr("takes the connection and does not begin TLS in 1 s; look whether"));
}

/// Takes no connection: its queue is full.
class FullListener {
 public:
  FullListener() {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* const any_address = reinterpret_cast<sockaddr*>(&address);
    if (bind(sockets_[0], any_address, length) != 0 || listen(sockets_[0], 0) != 0 ||
        getsockname(sockets_[0], any_address, &length) != 0) {
      throw std::runtime_error("the full listener cannot listen");
    }
    port_ = ntohs(address.sin_port);
    for (std::size_t i = 1; i < sockets_.size(); ++i) {
      connect(sockets_[i], any_address, length);
    }
  }
  ~FullListener() {
    for (const int socket : sockets_) {
      close(socket);
    }
  }
  FullListener(const FullListener&) = delete;
  FullListener& operator=(const FullListener&) = delete;

  int port() const { return port_; }

 private:
  static int NewSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

  std::array<int, 4> sockets_ = {NewSocket(), NewSocket(), NewSocket(), NewSocket()};
  int port_ = 0;
};

class LinkToAFullListener : public LinkTest, public ::testing::WithParamInterface<bool> {};

TEST_P(LinkToAFullListener, SaysThatThereIsNoTcpConnection) {
  const FullListener full;
  options_.broker.use_tls = GetParam();
  options_.broker.answer_timeout_s = 1;
  options_.broker.addresses = {{"127.0.0.1", full.port()}, {"127.0.0.1", broker_.port()}};
  const std::string log = LogOf([this] {
    StartLink();
    broker_.Accept();
  });
  EXPECT_THAT(log, HasSubstr("no TCP connection in 1 s; look at the address"));
}

INSTANTIATE_TEST_SUITE_P(, LinkToAFullListener, ::testing::Bool(),
                         [](const auto& use_tls) { return use_tls.param ? "Tls" : "Plain"; });

}  // namespace
}  // namespace agent
