// Which version of MQTT a link speaks, and what it does without MQTT 5.
#include "mqtt/link_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace agent {
namespace {

using ::testing::HasSubstr;

class LinkVersionTest : public LinkTest {
 protected:
  /// Reads the next CONNECT, which is of this version.
  BrokerSession Expect(int version) {
    BrokerSession session = broker_.Accept();
    EXPECT_EQ(session.ExpectConnect().version, version);
    return session;
  }

  /// Reads the next CONNECT, lets the agent in, and ends the connection.
  void LetInOnce(int version) {
    BrokerSession session = Expect(version);
    session.SendConnack(0);
    session.ExpectSubscribe();
    EXPECT_EQ(Heard(), "up");
    session.Close();
    EXPECT_EQ(Heard(), "down");
  }

  BrokerSession ConnectedWith311() {
    options_.broker.version = MqttVersion::k311;
    return Connected();
  }
};

TEST_F(LinkVersionTest, Is311ForGoodAfterARefusalOf5) {
  const std::string log = LogOf([this] {
    StartLink();
    Expect(5).SendConnack(0x84);
    LetInOnce(4);
    LetInOnce(4);
  });
  EXPECT_THAT(log, HasSubstr("the broker refuses MQTT 5: Unsupported Protocol Version (0x84); "
                             "from now on it gets MQTT 3.1.1"));
  EXPECT_THAT(log, HasSubstr("with MQTT 3.1.1"));
}

TEST_F(LinkVersionTest, Is311WithoutDelay) {
  options_.backoff_min_ms = options_.backoff_max_ms = 3600000;
  StartLink();
  Expect(5).SendConnack(0x84);
  Expect(4);
}

TEST_F(LinkVersionTest, Is311AfterTheRefusalOfABrokerThatKnowsOnlyThat) {
  StartLink();
  Expect(5).SendConnackOf311(1);
  LetInOnce(4);
  LetInOnce(4);
}

TEST_F(LinkVersionTest, Is311ForABrokerThatAnswersInIt) {
  StartLink();
  Expect(5).SendConnackOf311(0);
  LetInOnce(4);
}

TEST_F(LinkVersionTest, Is311ForGoodWhereConnectOf5EndsTheConnectionTwice) {
  StartLink();
  for (int i = 0; i < 2; ++i) {
    Expect(5).Close();
    LetInOnce(4);
  }
  LetInOnce(4);
}

TEST_F(LinkVersionTest, Is5AgainWhereConnectEndsTheConnectionInAnyVersion) {
  StartLink();
  for (int i = 0; i < 3; ++i) {
    Expect(5).Close();
    Expect(4).Close();
  }
  LetInOnce(5);
}

TEST_F(LinkVersionTest, Stays5OnceTheBrokerHasSpokenIt) {
  StartLink();
  LetInOnce(5);
  for (int i = 0; i < 3; ++i) {
    Expect(5).Close();
  }
  LetInOnce(5);
}

TEST_F(LinkVersionTest, ThatIsGivenIsTheOnlyOne) {
  options_.broker.version = MqttVersion::k5;
  const std::string log = LogOf([this] {
    StartLink();
    Expect(5).SendConnack(0x84);
    Expect(5);
  });
  EXPECT_THAT(log, HasSubstr("leave the version to --mqtt-version auto"));
}

TEST_F(LinkVersionTest, Of311SubscribesWithoutOptionsAndSendsNoProperties) {
  options_.broker.version = MqttVersion::k311;
  StartLink();
  BrokerSession session = Expect(4);
  session.SendConnack(0);
  EXPECT_EQ(session.ExpectSubscribe(), "cameras/CAM1/request/# 1");
  EXPECT_EQ(Heard(), "up");
  OutboundMessage message = Message("t", "{}");
  message.has_correlation_data = true;
  message.correlation_data = "c";
  ASSERT_EQ(link_->Publish(message).result, PublishResult::kAccepted);
  EXPECT_EQ(session.ExpectPublish().payload, "{}");
}

TEST_F(LinkVersionTest, Of311HasAcknowledgementsAndRetainedRequests) {
  BrokerSession session = ConnectedWith311();
  const Publication publication = link_->Publish(Message("t", "one"));
  session.SendPuback(session.ExpectPublish().message_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(publication.id) + " 0");
  session.SendPublish("cameras/CAM1/request/get_sn", "{}", "", true);
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn {}");
  EXPECT_TRUE(requests_[0].retained);
  EXPECT_TRUE(requests_[0].response_topic.empty());
}

TEST_F(LinkVersionTest, Of311TellsARefusedSubscription) {
  options_.broker.version = MqttVersion::k311;
  StartLink();
  BrokerSession session = Expect(4);
  session.SendConnack(0);
  session.ExpectSubscribe(0x80);
  EXPECT_EQ(Heard(), "up without requests");
}

TEST_F(LinkVersionTest, Of311SaysWhyItIsNotLetIn) {
  options_.broker.version = MqttVersion::k311;
  const std::string log = LogOf([this] {
    StartLink();
    for (const int code : {2, 3, 4, 5}) {
      Expect(4).SendConnack(code);
    }
    Expect(4);
  });
  EXPECT_THAT(log, HasSubstr("Client Identifier not valid (0x02); give another --client-id"));
  EXPECT_THAT(log, HasSubstr("Server unavailable (0x03)"));
  EXPECT_THAT(log, HasSubstr("Bad User Name or Password (0x04); look at --username"));
  EXPECT_THAT(log, HasSubstr("Not authorized (0x05); look at --username"));
}

TEST_F(LinkVersionTest, Of311TellsADeniedPublicationFromALostLink) {
  const std::string log = LogOf([this] {
    options_.broker.version = MqttVersion::k311;
    StartLink();
    for (int i = 0; i < 2; ++i) {
      BrokerSession session = broker_.Accept();
      session.LetIn();
      EXPECT_EQ(Heard(), "up");
      link_->Publish(Message("a/denied/topic", "{}"));
      session.ExpectPublish();
      session.Close();
      EXPECT_EQ(Heard(), "down");
    }
    LetInOnce(4);
    broker_.Accept();  // after the end of the one before was told
  });
  EXPECT_THAT(log, HasSubstr("the broker ended the connection after a/denied/topic was published, "
                             "and not acknowledged: if that comes again, look at what"));
  EXPECT_THAT(log, HasSubstr("the broker refuses to publish a/denied/topic: it ended 2 connections "
                             "in a row right after that; look at what the broker allows"));
  EXPECT_THAT(log, HasSubstr("The connection was lost"));
}

TEST_F(LinkVersionTest, Of311BlamesNoPublicationThatWasAcknowledged) {
  const std::string log = LogOf([this] {
    BrokerSession session = ConnectedWith311();
    link_->Publish(Message("a/topic", "{}"));
    session.SendPuback(session.ExpectPublish().message_id, 0);
    EXPECT_THAT(Heard(), HasSubstr("acknowledged"));
    session.Close();
    EXPECT_EQ(Heard(), "down");
    broker_.Accept();
  });
  EXPECT_THAT(log, HasSubstr("The connection was lost"));
  EXPECT_THAT(log, testing::Not(HasSubstr("a/topic")));
}

}  // namespace
}  // namespace agent
