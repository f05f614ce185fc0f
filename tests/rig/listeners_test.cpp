// Results that the broker takes although nobody subscribes to them.
#include <filesystem>

#include "rig_test.h"

namespace {

class Listeners : public RigTest {
 protected:
  void SetUp() override { rig_.StartCamera(); }

  /// Starts the agent, and has everybody leave.
  void StartUnheard(const std::vector<std::string>& options = {}) {
    rig_.StartAgent(options);
    rig_.cloud.reset();
  }
};

TEST_F(Listeners, ThatAreMissingLeaveResultsInTheStore) {
  StartUnheard();
  for (int i = 0; i < 30; ++i) {
    rig_.Ctl({"car"});
  }
  EXPECT_TRUE(AgentPrints("nobody listens to results"));
  EXPECT_EQ(Undelivered(), 30);
}

TEST_F(Listeners, ThatComeGetTheNextResultsLiveAndTheOthersOnCommand) {
  rig_.more_environment["TARVEX_CLOCK_SCALE"] = "100";
  StartUnheard();
  for (int i = 0; i < 5; ++i) {
    rig_.Ctl({"car"});
  }
  ASSERT_TRUE(AgentPrints("nobody listens to results"));
  rig_.cloud = std::make_unique<MqttClient>(rig_.broker.port(), "cameras/#");
  ASSERT_TRUE(AgentPrints("somebody listens to results again"));
  rig_.Ctl({"car", "HEARD01"});
  EXPECT_EQ(AwaitPlate("HEARD01")["tag"].asInt(), 11);
  rig_.Request("check_offline_record", R"({"enable":"push","max_count":100})");
  EXPECT_TRUE(WaitUntil([this] { return Undelivered() == 0; }));
}

TEST_F(Listeners, ThatAreMissingDoNotUseUpThePictureDirectory) {
  rig_.more_environment["TARVEX_CLOCK_SCALE"] = "100";
  rig_.StartAgent({"--keep-pictures", "4"});
  rig_.Ctl({"car", "HEARD01"});
  const Json::Value heard = AwaitPlate("HEARD01");
  rig_.cloud.reset();
  rig_.Ctl({"car"});
  ASSERT_TRUE(AgentPrints("heard by nobody"));
  ASSERT_TRUE(WaitUntil([this] {
    const std::string log = rig_.agent->Output();
    std::size_t offers = 0;
    for (std::size_t at = log.find("tag 16"); at != std::string::npos;
         at = log.find("tag 16", at + 1)) {
      ++offers;
    }
    return offers >= 5;
  }));
  EXPECT_TRUE(std::filesystem::exists(FromBase64(PlateResult(heard)["imagePath"].asString())
                                          .substr(std::string("file://").size())));
}

TEST_F(Listeners, AreNotAwaitedWhereUnheardResultsCountAsDelivered) {
  StartUnheard({"--unheard", "confirm"});
  rig_.Ctl({"car"});
  EXPECT_TRUE(WaitUntil([this] { return Undelivered() == 0; }));
  rig_.Ctl({"car"});
  EXPECT_TRUE(WaitUntil([this] { return Undelivered() == 0; }));
}

}  // namespace
