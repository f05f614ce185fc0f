// Servers that die and come back, and what the agent makes of it.
#include <fstream>

#include "rig_test.h"

namespace {

class Outages : public RigTest {
 protected:
  void SetUp() override {
    rig_.StartCamera();
    rig_.StartAgent();
  }

  /// A result arrives and is acknowledged again.
  bool ResultsFlow() {
    return WaitUntil([this] {
      rig_.Ctl({"car"});
      return rig_.cloud
          ->Await(
              [this](const MqttClient::Message& message) {
                return message.topic == rig_.Topic("message/ivs_result");
              },
              std::chrono::milliseconds(500))
          .has_value();
    });
  }

  long AgentMemory_kB() const {
    std::ifstream status("/proc/" + std::to_string(rig_.agent->pid()) + "/status");
    std::string word;
    while (status >> word) {
      if (word == "VmRSS:") {
        long value = 0;
        status >> value;
        return value;
      }
    }
    return 0;
  }
};

TEST_F(Outages, AKilledBrokerIsReconnectedToAndToldSo) {
  rig_.broker.Kill();
  EXPECT_TRUE(AgentPrints("broker lost"));
  rig_.cloud->Forget();
  rig_.broker.Start();
  EXPECT_TRUE(rig_.AwaitOnline(true));
  EXPECT_TRUE(ResultsFlow());
}

TEST_F(Outages, AFrozenBrokerIsNoticed) {
  rig_.broker.Freeze();
  EXPECT_TRUE(AgentPrints("broker lost"));
  rig_.broker.Thaw();
  EXPECT_TRUE(ResultsFlow());
}

TEST_F(Outages, AKilledBusServerIsReconnectedTo) {
  rig_.bus.Kill();
  EXPECT_EQ(rig_.Request("get_last_result")["result"], false);
  rig_.bus.Start();
  EXPECT_TRUE(WaitUntil([this] {
    try {
      rig_.Ctl({"state"});
      return true;
    } catch (const std::runtime_error&) {
      return false;
    }
  }));
  EXPECT_TRUE(ResultsFlow());
}

TEST_F(Outages, AKilledDatabaseServerIsReconnectedTo) {
  rig_.key_values.Kill();
  rig_.key_values.Start();
  EXPECT_TRUE(WaitUntil([this] {
    try {
      rig_.Ctl({"rename", "After"});
      return true;
    } catch (const std::runtime_error&) {
      return false;
    }
  }));
  EXPECT_TRUE(WaitUntil([this] {
    rig_.Ctl({"car"});
    const Json::Value alarm = rig_.AwaitMessage("ivs_result")["payload"]["AlarmInfoPlate"];
    return FromBase64(alarm["deviceName"].asString()) == "After";
  }));
}

TEST_F(Outages, AKilledCameraComesBackWithItsResults) {
  rig_.Ctl({"car", "AB12345"});
  AwaitPlate("AB12345");
  rig_.camera->Kill();
  rig_.StartCamera();
  EXPECT_EQ(rig_.CameraState()["results"]["stored"].asInt(), 1);
  EXPECT_TRUE(ResultsFlow());
}

TEST_F(Outages, TheAgentsMemoryIsFlatWhileTheBrokerIsAway) {
  rig_.broker.Kill();
  EXPECT_TRUE(AgentPrints("broker lost"));
  rig_.camera->Terminate();
  rig_.StartCamera({"--cars-per-minute", "6000", "--picture-width", "64"});
  const auto recognised = [this] { return rig_.CameraState()["results"]["recognised"].asInt(); };
  // What a host allocates at the beginning is not what is looked for.
  ASSERT_TRUE(WaitUntil([&] { return recognised() > 300; }));
  const long before_kB = AgentMemory_kB();
  const int start = recognised();
  ASSERT_TRUE(
      WaitUntil([&] { return recognised() > start + 1500; }, std::chrono::milliseconds(120000)));
  EXPECT_LT(AgentMemory_kB(), before_kB + 2048);  // 1500 results would be some 6 MB
  rig_.cloud->Forget();
  rig_.broker.Start();
  EXPECT_TRUE(rig_.AwaitOnline(true));
  EXPECT_TRUE(rig_.cloud->AwaitTopic(rig_.Topic("message/ivs_result")).has_value());
}

}  // namespace
