// Servers that die and come back, and what the agent makes of it.
#include <algorithm>
#include <fstream>
#include <vector>

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

  /// How much the agent's memory grows in each of some steps of so many results.
  std::vector<long> AgentGrowth_kB(std::size_t steps, int results_per_step) {
    std::vector<long> growth_kB;
    long before_kB = AgentMemory_kB();
    int next = rig_.CameraState()["results"]["recognised"].asInt();
    while (growth_kB.size() < steps) {
      next += results_per_step;
      EXPECT_TRUE(WaitUntil(
          [&] { return rig_.CameraState()["results"]["recognised"].asInt() >= next; }, kLong));
      const long now_kB = AgentMemory_kB();
      growth_kB.push_back(now_kB - before_kB);
      before_kB = now_kB;
    }
    return growth_kB;
  }

  static constexpr int kResultsPerStep = 150;
  static constexpr auto kLong = std::chrono::milliseconds(120000);

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
  // One step may be noise; a leak of some 4 kB per result shows in every one of them.
  const std::vector<long> growth_kB = AgentGrowth_kB(11, kResultsPerStep);
  std::vector<long> sorted = growth_kB;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_LT(sorted[sorted.size() / 2], kResultsPerStep) << testing::PrintToString(growth_kB);
  rig_.cloud->Forget();
  rig_.broker.Start();
  EXPECT_TRUE(rig_.AwaitOnline(true));
  EXPECT_TRUE(rig_.cloud->AwaitTopic(rig_.Topic("message/ivs_result")).has_value());
}

}  // namespace
