#include "mqttadapter_host/gated_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_bus.h"

namespace mqttadapter_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class GatedBusTest : public ::testing::Test {
 protected:
  GatedBusTest() {
    gated_->SignalDpMessage.connect(&listener_, &Listener::OnMessage);
    gated_->ListenMessage("topic", 0);
  }

  void LetPass() {
    for (const auto& deliver : std::exchange(held_, {})) {
      deliver();
    }
  }

  const boost::shared_ptr<FakeBus> bus_ = boost::make_shared<FakeBus>();
  std::vector<std::string> at_gate_;
  std::vector<std::function<void()>> held_;
  boost::shared_ptr<tarvex::DpClient> gated_ =
      GatedBus(bus_, [this](const tarvex::DpMessage& message, std::function<void()> deliver) {
        at_gate_.push_back(message.method + " " + message.body);
        held_.push_back(std::move(deliver));
      });
  Listener listener_;
};

TEST_F(GatedBusTest, HoldsAMessageUntilTheGateLetsItPass) {
  bus_->Hear("topic", "1");
  EXPECT_THAT(at_gate_, ElementsAre("topic 1"));
  EXPECT_THAT(listener_.heard, IsEmpty());
  LetPass();
  EXPECT_THAT(listener_.heard, ElementsAre("topic 1"));
}

TEST_F(GatedBusTest, IsItselfTheClientThatAMessageComesFrom) {
  bus_->Hear("topic", "1");
  LetPass();
  EXPECT_EQ(listener_.from, gated_.get());
}

TEST_F(GatedBusTest, AsksTheGateAboutAMessageThatComesWhileATopicIsBeingListenedTo) {
  bus_->hears_at_once = true;
  gated_->ListenMessage("other", 0);
  EXPECT_THAT(at_gate_, ElementsAre("other at once"));
}

TEST_F(GatedBusTest, PassesRequestsAndTheirAnswersOn) {
  std::string reply;
  EXPECT_EQ(gated_->SendRequest("QUEUE", 0, "body", 4, &reply, 300), 7);
  EXPECT_EQ(reply, "answer");
  EXPECT_EQ(bus_->calls.back(), "QUEUE body 300");
}

TEST_F(GatedBusTest, PassesTopicsOnAndTheirResults) {
  bus_->listen_result = -1;
  EXPECT_EQ(gated_->ListenMessage("other", 0), -1);
  EXPECT_EQ(gated_->RemoveListenMessage("topic"), 3);
  EXPECT_THAT(bus_->calls, ElementsAre("listen topic", "listen other", "leave topic"));
}

TEST_F(GatedBusTest, DeliversNothingOfATopicThatCouldNotBeListenedTo) {
  bus_->listen_result = -1;
  gated_->ListenMessage("other", 0);
  bus_->Hear("other", "1");
  EXPECT_THAT(at_gate_, IsEmpty());
}

TEST_F(GatedBusTest, GoesOnWithATopicThatIsListenedToAlreadyWhereItFailsTheSecondTime) {
  bus_->listen_result = -1;
  gated_->ListenMessage("topic", 0);
  bus_->Hear("topic", "1");
  EXPECT_THAT(at_gate_, ElementsAre("topic 1"));
}

TEST_F(GatedBusTest, DeliversNothingOfATopicThatWasLeftMeanwhile) {
  bus_->Hear("topic", "1");
  gated_->RemoveListenMessage("topic");
  gated_->ListenMessage("topic", 0);  // what was held is of before
  LetPass();
  EXPECT_THAT(listener_.heard, IsEmpty());
}

TEST_F(GatedBusTest, DeliversNothingAfterItsEnd) {
  bus_->Hear("topic", "1");
  gated_.reset();
  LetPass();
  EXPECT_THAT(listener_.heard, IsEmpty());
}

TEST_F(GatedBusTest, IsNotKeptAliveByTheGate) {
  const boost::weak_ptr<tarvex::DpClient> gated = gated_;
  bus_->Hear("topic", "1");
  gated_.reset();
  EXPECT_TRUE(gated.expired());
}

TEST_F(GatedBusTest, MayEndWhileItsGateIsAsked) {
  gated_ = GatedBus(bus_, [this](const tarvex::DpMessage&, std::function<void()> deliver) {
    gated_.reset();
    deliver();
  });
  gated_->ListenMessage("topic", 0);
  bus_->Hear("topic", "1");
  EXPECT_EQ(gated_, nullptr);
}

TEST(GatedBus, IsNoneWhereThePlatformHasNoClient) {
  EXPECT_EQ(GatedBus(nullptr, [](const tarvex::DpMessage&, const std::function<void()>&) {}),
            nullptr);
}

}  // namespace
}  // namespace mqttadapter_host
