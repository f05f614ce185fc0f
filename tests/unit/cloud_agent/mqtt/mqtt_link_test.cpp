#include "cloud_agent/mqtt/mqtt_link.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "mqtt/link_fixture.h"
#include "support/mqtt_bytes.h"
#include "support/wait_until.h"

namespace agent {
namespace {

using ::testing::HasSubstr;

TEST_F(LinkTest, ConnectsCleanlyWithAWillAndSubscribesToNewRequestsOnly) {
  options_.broker.username = "cam";
  options_.broker.password = "secret";
  StartLink();
  BrokerSession session = broker_.Accept();
  const ReadConnect connect = session.ExpectConnect();
  EXPECT_TRUE(connect.clean_start);
  EXPECT_TRUE(connect.will_retain);
  EXPECT_EQ(connect.keep_alive_s, 10);
  EXPECT_EQ(connect.client_id, "CAM1");
  EXPECT_EQ(connect.will_topic, "cameras/CAM1/status");
  EXPECT_EQ(connect.will_payload, "gone");
  EXPECT_EQ(connect.username, "cam");
  EXPECT_EQ(connect.password, "secret");
  session.SendConnack(0);
  // QoS 1, no local messages, retain as published, no retained messages.
  EXPECT_EQ(session.ExpectSubscribe(), "cameras/CAM1/request/# 45");
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, ReportsTheAcknowledgementOfEachPublication) {
  BrokerSession session = Connected();
  const Publication first = link_->Publish(Message("t", "one"));
  const Publication second = link_->Publish(Message("t", "two"));
  ASSERT_EQ(first.result, PublishResult::kAccepted);
  const int first_id = session.ExpectPublish().message_id;
  const ReadPublish publish = session.ExpectPublish();
  EXPECT_EQ(publish.topic, "t");
  EXPECT_EQ(publish.payload, "two");
  session.SendPuback(publish.message_id, 0x87);
  session.SendPuback(first_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(second.id) + " 135");
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(first.id) + " 0");
}

TEST_F(LinkTest, PublishesNothingBeforeItStands) {
  StartLink();
  EXPECT_EQ(link_->Publish(Message("t", "one")).result, PublishResult::kLinkDown);
}

TEST_F(LinkTest, PublishesNothingBeforeTheEventThreadKnowsOfTheConnection) {
  StartLink();
  BrokerSession session = broker_.Accept();
  session.LetIn();
  ASSERT_TRUE(queue_.HoldsSoon(1));
  EXPECT_EQ(link_->Publish(Message("t", "one")).result, PublishResult::kLinkDown);
  EXPECT_EQ(Heard(), "up");
  EXPECT_EQ(link_->Publish(Message("t", "one")).result, PublishResult::kAccepted);
}

TEST_F(LinkTest, TellsWhenTheSubscriptionIsRefused) {
  StartLink();
  BrokerSession session = broker_.Accept();
  session.ExpectConnect();
  session.SendConnack(0);
  session.ExpectSubscribe(0x87);
  EXPECT_EQ(Heard(), "up without requests");
}

TEST_F(LinkTest, LeavesABrokerThatNeverAnswersTheSubscription) {
  options_.broker.answer_timeout_s = 1;
  StartLink();
  {
    BrokerSession session = broker_.Accept();
    session.ExpectConnect();
    session.SendConnack(0);
    EXPECT_EQ(session.Read().type, 8);
    EXPECT_THROW(session.Read(), std::runtime_error);  // the connection is closed
  }
  BrokerSession session = broker_.Accept();
  session.LetIn();
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, ComesBackByItselfAndNeverSendsAgainWhatWasUnderWay) {
  const Publication lost = [this] {
    BrokerSession session = Connected();
    const Publication publication = link_->Publish(Message("t", "lost"));
    session.ExpectPublish();
    return publication;
  }();
  EXPECT_EQ(Heard(), "down");
  BrokerSession session = broker_.Accept();
  session.LetIn();
  EXPECT_EQ(Heard(), "up");
  const Publication next = link_->Publish(Message("t", "next"));
  EXPECT_NE(next.id, lost.id);
  const ReadPublish publish = session.ExpectPublish();
  EXPECT_EQ(publish.payload, "next");
  session.SendPuback(publish.message_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(next.id) + " 0");
}

TEST_F(LinkTest, RefusesWhatCannotBePublished) {
  BrokerSession session = Connected();
  EXPECT_EQ(link_->Publish(Message("t/#", "1")).result, PublishResult::kRefused);
}

TEST_F(LinkTest, HandsOverARequestWithWhatItsAnswerNeeds) {
  BrokerSession session = Connected();
  const std::string properties =
      "\x08" + MqttString("my/answers") + "\x09" + MqttString(std::string("\0c", 2));
  session.SendPublish("cameras/CAM1/request/get_sn", "{}", properties, true);
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn {}");
  EXPECT_EQ(requests_[0].size, 2U);
  EXPECT_TRUE(requests_[0].retained);
  EXPECT_EQ(requests_[0].response_topic, "my/answers");
  EXPECT_TRUE(requests_[0].has_correlation_data);
  EXPECT_EQ(requests_[0].correlation_data, std::string("\0c", 2));
}

TEST_F(LinkTest, HandsOverAnEmptyRequest) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "");
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn ");
  EXPECT_FALSE(requests_[0].has_correlation_data);
  EXPECT_FALSE(requests_[0].retained);
}

TEST_F(LinkTest, KeepsOfARequestThatIsTooLargeItsSizeAndBeginning) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", std::string(2000, 'x'));
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn " + std::string(1024, 'x'));
  EXPECT_EQ(requests_[0].size, 2000U);
}

TEST_F(LinkTest, HandsOverWhenAMessageExpires) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "a");
  session.SendPublish("cameras/CAM1/request/get_sn", "b", std::string("\x02\0\0\x01\x02", 5));
  Heard();
  Heard();
  EXPECT_FALSE(requests_[0].expires_in);
  EXPECT_EQ(requests_[1].expires_in, std::chrono::seconds(258));
  EXPECT_GE(requests_[1].received_at, requests_[0].received_at);
}

TEST_F(LinkTest, SendsWhatIsToBeSentAtOnce) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "too much");
  const ReadPublish refusal = session.ExpectPublish();
  EXPECT_EQ(refusal.topic + " " + refusal.payload, "refused too much");
}

TEST_F(LinkTest, SendsCorrelationDataWhereAMessageHasSome) {
  BrokerSession session = Connected();
  OutboundMessage message = Message("my/answers", "{}");
  message.has_correlation_data = true;
  message.correlation_data = std::string("\0c", 2);
  link_->Publish(message);
  EXPECT_EQ(session.ExpectPublish().properties, "\x09" + MqttString(message.correlation_data));
}

TEST_F(LinkTest, KeepsTryingWhenTheBrokerRefuses) {
  StartLink();
  for (int attempt = 0; attempt < 3; ++attempt) {
    BrokerSession session = broker_.Accept();
    session.ExpectConnect();
    session.SendConnack(0x86);
  }
  BrokerSession session = broker_.Accept();
  session.LetIn();
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, DropsAConnectionForTheReasonGiven) {
  BrokerSession session = Connected();
  link_->Drop("enough");
  EXPECT_EQ(Heard(), "down");
  EXPECT_EQ(reason_, "enough");
}

TEST_F(LinkTest, SaysThatAnotherClientUsesItsClientId) {
  BrokerSession session = Connected();
  session.SendDisconnect(0x8E);
  EXPECT_EQ(Heard(), "down");
  EXPECT_THAT(reason_, HasSubstr("another client has connected as CAM1"));
  EXPECT_THAT(reason_, HasSubstr("--client-id"));
}

TEST_F(LinkTest, SuspectsAnotherClientBehindConnectionsThatDoNotLast) {
  testing::internal::CaptureStderr();
  StartLink();
  for (int attempt = 0; attempt < 3; ++attempt) {
    broker_.Accept().LetIn();
    EXPECT_EQ(Heard(), "up");
    EXPECT_EQ(Heard(), "down");
  }
  BrokerSession session = broker_.Accept();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("3 connections in a row did not last: another client may use the "
                             "client id CAM1"));
  EXPECT_THAT(log, testing::Not(HasSubstr("2 connections in a row")));
}

TEST_F(LinkTest, ToldOfARefusalOfItsOwnReportsNoAcknowledgement) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "too much");
  session.SendPuback(session.ExpectPublish().message_id, 0);
  Heard();
  const Publication publication = link_->Publish(Message("t", "two"));
  session.SendPuback(session.ExpectPublish().message_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(publication.id) + " 0");
}

TEST_F(LinkTest, TakesRequestsWhileTheEventThreadIsBusy) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "text");
  EXPECT_TRUE(WaitUntil([this] { return queue_.Waiting() == 1; }));
}

TEST_F(LinkTest, SaysGoodbyeWithItsLastMessage) {
  BrokerSession session = Connected();
  std::thread stopping([this] {
    OutboundMessage last = Message("cameras/CAM1/status", "bye");
    last.retain = true;
    link_->Stop(last);
  });
  const ReadPublish publish = session.ExpectPublish();
  EXPECT_EQ(publish.payload, "bye");
  EXPECT_TRUE(publish.retain);
  session.SendPuback(publish.message_id, 0);
  const MqttPacket disconnect = session.Read();
  EXPECT_EQ(disconnect.type, 14);
  EXPECT_TRUE(disconnect.body.empty() || disconnect.body[0] == 0) << "the will would be sent";
  stopping.join();
}

TEST_F(LinkTest, ReportsNothingAfterItWasStopped) {
  BrokerSession session = Connected();
  link_->Publish(Message("t", "one"));
  session.SendPuback(session.ExpectPublish().message_id, 0);
  ASSERT_TRUE(queue_.HoldsSoon(1));
  link_->Stop(Message("t", "bye"));
  EXPECT_EQ(link_->Publish(Message("t", "two")).result, PublishResult::kLinkDown);
  queue_.Post([this] { heard_.push_back("end"); });
  EXPECT_EQ(Heard(), "end");
}

TEST_F(LinkTest, EndsWhileItWaitsForABrokerThatNeverAnswers) {
  StartLink();
  BrokerSession session = broker_.Accept();
  session.ExpectConnect();
  link_->Stop(Message("t", "bye"));
}

}  // namespace
}  // namespace agent
