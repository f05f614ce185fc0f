// Results that were recognised while nobody could have them, delivered later.
#include <filesystem>

#include "rig_test.h"

namespace {

class Redelivery : public RigTest {
 protected:
  Redelivery() {
    // The five seconds between two records pass in 50 ms.
    rig_.more_environment["TARVEX_CLOCK_SCALE"] = "100";
  }
};

TEST_F(Redelivery, OnCommandBringsWhatWasMissedInOrder) {
  rig_.StartCamera();
  rig_.StartAgent();
  MissCars(12);
  EXPECT_EQ(Undelivered(), 12);
  BrokerComesBack();
  Push(100);
  for (unsigned int id = 1; id <= 12; ++id) {
    EXPECT_EQ(AwaitRedelivered(), id);
  }
  EXPECT_EQ(rig_.AwaitMessage("offline_record")["payload"]["body"]["offline_record"].asInt(), 0);
  EXPECT_EQ(Undelivered(), 0);
}

TEST_F(Redelivery, EndsAtItsLimitAndTellsWhatIsLeft) {
  rig_.StartCamera();
  rig_.StartAgent();
  MissCars(9);
  BrokerComesBack();
  Push(7);
  // The count that follows a connection comes before them, the one of the end after.
  for (unsigned int id = 1; id <= 7; ++id) {
    EXPECT_EQ(AwaitRedelivered(), id);
  }
  EXPECT_EQ(rig_.AwaitMessage("offline_record")["payload"]["body"]["offline_record"].asInt(), 2);
  EXPECT_EQ(Undelivered(), 2);
}

TEST_F(Redelivery, IsNotBegunUnasked) {
  rig_.StartCamera();
  rig_.StartAgent();
  MissCars(3);
  BrokerComesBack();
  rig_.Ctl({"car"});
  EXPECT_EQ(rig_.AwaitMessage("ivs_result")["tag"].asInt(), 11);
  EXPECT_EQ(rig_.AgentStatus()["undelivered"]["count"].asInt(), 3);
}

TEST_F(Redelivery, IsBegunByTheAgentWhenItIsToldTo) {
  rig_.StartCamera();
  rig_.StartAgent({"--auto-push"});
  MissCars(3);
  // The test's own client may be back later than the agent: what counts is the store.
  rig_.broker.Start();
  EXPECT_TRUE(WaitUntil([this] { return Undelivered() == 0; }));
  EXPECT_TRUE(AgentPrints("ivs_result tag 16"));
}

TEST_F(Redelivery, ShowsItsProgress) {
  rig_.StartCamera();
  rig_.StartAgent();
  MissCars(6);
  BrokerComesBack();
  Push(100);
  EXPECT_TRUE(AgentPrints("re-delivery: 6 done, 0 left"));
}

TEST_F(Redelivery, StopsOnCommandAndLeavesTheRestInTheStore) {
  rig_.more_environment["TARVEX_CLOCK_SCALE"] = "10";  // half a second between two records
  rig_.StartCamera();
  rig_.StartAgent();
  MissCars(5);
  BrokerComesBack();
  Push(100);
  AwaitRedelivered();
  EXPECT_EQ(rig_.Request("check_offline_record", R"({"enable":"stop"})")["result"], true);
  const int left = Undelivered();
  EXPECT_GT(left, 0);
  // A status comes each second: at least one, in which a re-delivery would have gone on.
  rig_.AgentStatus();
  rig_.AgentStatus();
  EXPECT_EQ(Undelivered(), left);
}

TEST_F(Redelivery, IsOfNothingAfterAClearOnCommand) {
  rig_.StartCamera();
  rig_.StartAgent();
  MissCars(4);
  BrokerComesBack();
  EXPECT_EQ(Undelivered(), 4);
  EXPECT_EQ(rig_.Request("check_offline_record", R"({"enable":"clear"})")["result"], true);
  EXPECT_EQ(Undelivered(), 0);
}

TEST_F(Redelivery, OfWhatIsLeftWhenTheAgentIsKilled) {
  rig_.StartCamera();
  rig_.StartAgent();
  MissCars(3);
  rig_.agent->Kill();
  rig_.Ctl({"car"});
  rig_.broker.Start();
  ASSERT_TRUE(WaitUntil([this] { return rig_.cloud->IsSubscribed(); }));
  rig_.StartAgent();
  Push(100);
  for (unsigned int id = 1; id <= 4; ++id) {
    EXPECT_EQ(AwaitRedelivered(), id);
  }
}

TEST_F(Redelivery, OfAStoreThatOverflowedBringsTheNewestAndThenAllIsAsBefore) {
  rig_.StartCamera({"--keep-results", "10"});
  rig_.StartAgent();
  MissCars(25);
  const Json::Value results = rig_.CameraState()["results"];
  EXPECT_EQ(results["undelivered"].asInt(), 10);
  EXPECT_EQ(results["undelivered_removed"].asInt(), 15);
  EXPECT_THAT(rig_.camera->Output(), testing::HasSubstr("undelivered"));
  BrokerComesBack();
  Push(100);
  for (unsigned int id = 16; id <= 25; ++id) {
    EXPECT_EQ(AwaitRedelivered(), id);
  }
  EXPECT_TRUE(WaitUntil([this] { return Undelivered() == 0; }));
  rig_.AwaitMessage("offline_record");  // it is over: what comes now is not part of it
  rig_.Ctl({"car", "AFTER01"});
  EXPECT_EQ(AwaitPlate("AFTER01")["tag"].asInt(), 11);
}

TEST_F(Redelivery, LeavesDeliveredPicturesAlone) {
  rig_.StartCamera();
  rig_.StartAgent({"--keep-pictures", "20"});
  rig_.Ctl({"car", "BEFORE1"});
  const Json::Value before = AwaitPlate("BEFORE1");
  MissCars(15);
  BrokerComesBack();
  const std::string url = FromBase64(PlateResult(before)["imagePath"].asString());
  EXPECT_TRUE(std::filesystem::exists(url.substr(std::string("file://").size()))) << url;
}

TEST_F(Redelivery, IsAnnouncedByTheCountAfterEveryConnection) {
  rig_.StartCamera();
  rig_.StartAgent();
  EXPECT_EQ(rig_.AwaitMessage("offline_record")["payload"]["body"]["offline_record"].asInt(), 0);
  rig_.cloud->Forget();
  MissCars(2);
  // The agent waits for the test's own client, which would miss what it is not subscribed to.
  rig_.agent->Freeze();
  rig_.broker.Start();
  ASSERT_TRUE(WaitUntil([this] { return rig_.cloud->IsSubscribed(); }));
  rig_.agent->Thaw();
  EXPECT_EQ(rig_.AwaitMessage("offline_record")["payload"]["body"]["offline_record"].asInt(), 2);
}

TEST_F(Redelivery, CountsAndAgesAreVisible) {
  rig_.StartCamera();
  rig_.StartAgent();
  MissCars(2);
  EXPECT_TRUE(WaitUntil(
      [this] { return rig_.CameraState()["results"]["oldest_undelivered_age_s"].asInt() >= 1; }));
  BrokerComesBack();
  const Json::Value status = rig_.AgentStatus();
  EXPECT_EQ(status["undelivered"]["count"].asInt(), 2);
  EXPECT_GE(status["undelivered"]["oldest_age_s"].asInt(), 1);
  EXPECT_THAT(rig_.agent->Output(), testing::Not(testing::HasSubstr("ivs_result")));
}

}  // namespace
