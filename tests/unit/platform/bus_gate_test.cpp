#include "platform/bus_gate.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bus_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A gate that keeps what it is given until the test delivers it.
class BusGateTest : public BusTest {
 protected:
  BusGateTest() {
    client_->ListenMessage("topic", 0);
    tarvex::SetBusGate([this](const tarvex::DpMessage& message, std::function<void()> deliver) {
      at_gate_.push_back(message.method + " " + message.body);
      deliveries_.push_back(std::move(deliver));
    });
  }
  ~BusGateTest() override { tarvex::SetBusGate({}); }

  /// Publishes messages "1", "2", ... and takes them to the gate.
  void Arrive(std::size_t count) {
    for (std::size_t number = 1; number <= count; ++number) {
      device_.Publish("topic", std::to_string(number));
    }
    EXPECT_TRUE(HaveArrived(count));
    events_->Deliver();
  }

  std::vector<std::string> at_gate_;
  std::vector<std::function<void()>> deliveries_;
};

TEST_P(BusGateTest, HoldsMessagesBackUntilTheyAreDelivered) {
  Arrive(2);
  EXPECT_THAT(at_gate_, ElementsAre("topic 1", "topic 2"));
  EXPECT_THAT(listener_.heard, IsEmpty());
  deliveries_[0]();
  EXPECT_THAT(listener_.heard, ElementsAre("topic 1"));
  deliveries_[1]();
  EXPECT_THAT(listener_.heard, ElementsAre("topic 1", "topic 2"));
}

TEST_P(BusGateTest, DropsWhatIsNeverDelivered) {
  Arrive(2);
  deliveries_[1]();
  deliveries_.clear();
  EXPECT_THAT(listener_.heard, ElementsAre("topic 2"));
}

TEST_P(BusGateTest, DeliversNothingTwice) {
  Arrive(1);
  deliveries_[0]();
  deliveries_[0]();
  EXPECT_THAT(listener_.heard, ElementsAre("topic 1"));
}

TEST_P(BusGateTest, DeliversNothingAfterTheClientsEnd) {
  Arrive(1);
  client_.reset();
  deliveries_[0]();
  EXPECT_THAT(listener_.heard, IsEmpty());
}

TEST_P(BusGateTest, DoesNotKeepTheClientAlive) {
  const boost::weak_ptr<tarvex::DpClient> client = client_;
  Arrive(1);
  client_.reset();
  EXPECT_TRUE(client.expired());
}

TEST_P(BusGateTest, DeliversNothingOfATopicThatIsNotListenedToAnyMore) {
  Arrive(1);
  client_->RemoveListenMessage("topic");
  deliveries_[0]();
  EXPECT_THAT(listener_.heard, IsEmpty());
}

TEST_P(BusGateTest, IsNotAskedAboutATopicThatIsNotListenedToAnyMore) {
  device_.Publish("topic", "1");
  EXPECT_TRUE(HaveArrived(1));
  client_->RemoveListenMessage("topic");
  events_->Deliver();
  EXPECT_THAT(at_gate_, IsEmpty());
}

TEST_P(BusGateTest, MayDeliverAtOnce) {
  tarvex::SetBusGate([](const tarvex::DpMessage&, std::function<void()> deliver) { deliver(); });
  Arrive(1);
  EXPECT_THAT(listener_.heard, ElementsAre("topic 1"));
}

TEST_P(BusGateTest, MayOpenForGoodWhileItIsAsked) {
  tarvex::SetBusGate([](const tarvex::DpMessage&, std::function<void()> deliver) {
    tarvex::SetBusGate({});
    deliver();
  });
  Arrive(2);
  EXPECT_THAT(listener_.heard, ElementsAre("topic 1", "topic 2"));
}

INSTANTIATE_FOR_THREADS(BusGateTest);

}  // namespace
