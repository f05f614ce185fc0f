#include "cloud_agent/mqtt/broker_turns.h"

#include <gtest/gtest.h>

namespace agent {
namespace {

constexpr VersionFinding kNothing = VersionFinding::kNothing;
constexpr VersionFinding kSpoken = VersionFinding::kSpoken;
constexpr VersionFinding kRefused = VersionFinding::kRefused;
constexpr VersionFinding kDoubted = VersionFinding::kDoubted;

class BrokerTurnsTest : public ::testing::Test {
 protected:
  static std::vector<BrokerAddress> Addresses(const std::string& hosts) {
    std::vector<BrokerAddress> addresses;
    for (const char host : hosts) {
      addresses.push_back({std::string(1, host), 1});
    }
    return addresses;
  }

  /// Ends the present attempt.
  /// @return what is tried then, "wait" before it where a delay comes first.
  std::string After(VersionFinding finding, bool worked = false) {
    const BrokerTurns::Next next = turns_.OnEnd(finding, worked);
    text_ = next.text;
    return std::string(next.is_at_once ? "" : "wait ") + Present();
  }

  std::string Present() const {
    const BrokerTurns::Attempt attempt = turns_.Present();
    return attempt.address.host + (attempt.version == MqttVersion::k5 ? " 5" : " 3.1.1");
  }

  BrokerTurns turns_{Addresses("abc"), std::nullopt};
  std::string text_;
};

TEST_F(BrokerTurnsTest, GoThroughAllBeforeADelay) {
  EXPECT_EQ(Present(), "a 5");
  EXPECT_EQ(After(kNothing), "b 5");
  EXPECT_EQ(text_, "trying b:1");
  EXPECT_EQ(After(kNothing), "c 5");
  EXPECT_EQ(After(kNothing), "wait a 5");
  EXPECT_EQ(text_, "");
}

TEST_F(BrokerTurnsTest, BeginWithTheOneThatWorked) {
  After(kNothing);
  EXPECT_EQ(After(kSpoken, true), "wait b 5");
  EXPECT_EQ(After(kNothing), "c 5");
  EXPECT_EQ(After(kNothing), "a 5");
  EXPECT_EQ(After(kNothing), "wait b 5");
}

TEST_F(BrokerTurnsTest, KnowTheVersionOfEach) {
  EXPECT_EQ(After(kRefused), "a 3.1.1");
  EXPECT_EQ(text_, "from now on it gets MQTT 3.1.1");
  EXPECT_EQ(After(kNothing), "b 5");
  EXPECT_EQ(After(kNothing), "c 5");
  EXPECT_EQ(After(kNothing), "wait a 3.1.1");
}

TEST_F(BrokerTurnsTest, ComeToABrokerThatRefusesAnyVersionOncePerRound) {
  EXPECT_EQ(After(kRefused), "a 3.1.1");
  EXPECT_EQ(After(kRefused), "b 5");
  EXPECT_EQ(After(kNothing), "c 5");
  EXPECT_EQ(After(kNothing), "wait a 5");
}

TEST_F(BrokerTurnsTest, TryTheOlderVersionForOneConnectionWhereTheNewerIsDoubted) {
  EXPECT_EQ(After(kDoubted), "a 3.1.1");
  EXPECT_EQ(text_, "trying MQTT 3.1.1");
  EXPECT_EQ(After(kSpoken, true), "wait a 5");
  EXPECT_EQ(After(kDoubted), "a 3.1.1");
  EXPECT_EQ(After(kSpoken, true), "wait a 3.1.1");
  EXPECT_EQ(text_, "from now on it gets MQTT 3.1.1");
  EXPECT_EQ(After(kDoubted), "b 5");
}

TEST_F(BrokerTurnsTest, ComeBackToTheNewerVersionWhereTheOlderDoesNotWork) {
  for (const VersionFinding finding : {kNothing, kDoubted, kRefused}) {
    BrokerTurns turns(Addresses("a"), std::nullopt);
    turns.OnEnd(kDoubted, false);
    EXPECT_FALSE(turns.OnEnd(finding, false).is_at_once);
    EXPECT_EQ(turns.Present().version, MqttVersion::k5);
  }
}

TEST_F(BrokerTurnsTest, DoNotDoubtAVersionThatWasSpoken) {
  After(kSpoken, true);
  EXPECT_EQ(After(kDoubted), "b 5");
}

TEST_F(BrokerTurnsTest, BelieveARefusalOfAVersionThatWasSpoken) {
  After(kSpoken, true);
  EXPECT_EQ(After(kRefused), "a 3.1.1");
}

TEST_F(BrokerTurnsTest, KeepToAVersionThatIsGiven) {
  for (const VersionFinding finding : {kNothing, kSpoken, kDoubted, kRefused}) {
    BrokerTurns turns(Addresses("a"), MqttVersion::k311);
    EXPECT_FALSE(turns.OnEnd(finding, false).is_at_once);
    EXPECT_EQ(turns.Present().version, MqttVersion::k311);
  }
}

}  // namespace
}  // namespace agent
