// How the agent starts and ends, alone and beside others.
#include <fstream>

#include "rig_test.h"

namespace {

class AgentLife : public RigTest {
 protected:
  /// Launches another agent beside the rig's.
  std::unique_ptr<ChildProcess> LaunchSecond(const std::vector<std::string>& options) {
    std::unique_ptr<ChildProcess> first = std::move(rig_.agent);
    rig_.LaunchAgent(options);
    std::swap(first, rig_.agent);
    return first;
  }

  static std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
      ++count;
    }
    return count;
  }
};

TEST_F(AgentLife, EndsWithoutCarryingOutWhatWaits) {
  rig_.more_environment["TARVEX_LOG_LEVEL"] = "7";
  rig_.StartCamera();
  rig_.StartAgent();
  rig_.camera->Freeze();
  for (int i = 0; i < 10; ++i) {
    rig_.cloud->Publish(rig_.Topic("request/get_last_result"),
                        R"({"version":"1.0","payload":{"type":"get_last_result"}})");
  }
  ASSERT_TRUE(AgentPrints("RequestMessage name=get_last_result"));
  EXPECT_TRUE(rig_.agent->Terminate());
  EXPECT_EQ(rig_.agent->exit_code(), 0);
  EXPECT_LE(Count(rig_.agent->Output(), "RequestMessage name=get_last_result"), 2U);
  EXPECT_TRUE(rig_.AwaitOnline(false));
  rig_.camera->Thaw();
}

TEST_F(AgentLife, EndsWithoutAnError) {
  rig_.StartCamera();
  rig_.StartAgent();
  EXPECT_TRUE(rig_.agent->Terminate());
  EXPECT_THAT(rig_.agent->Output(), testing::Not(testing::HasSubstr(" error ")));
}

TEST_F(AgentLife, IsOverAtOnceWhenItCannotStart) {
  rig_.programs.plugin = RIG_THROWING_PLUGIN;
  rig_.LaunchAgent();
  ASSERT_TRUE(rig_.agent->WaitForExit());
  EXPECT_EQ(rig_.agent->exit_code(), 1);
  EXPECT_THAT(rig_.agent->Output(), testing::HasSubstr("cloud_agent: no adapter today"));
}

TEST_F(AgentLife, NeedsAPictureDirectoryOfItsOwn) {
  rig_.StartCamera();
  rig_.StartAgent();
  const auto second = LaunchSecond({});
  ASSERT_TRUE(second->WaitForExit());
  EXPECT_EQ(second->exit_code(), 1);
  EXPECT_THAT(second->Output(), testing::HasSubstr("another agent uses the picture directory"));
}

TEST_F(AgentLife, SaysThatAnotherHasItsIdentity) {
  rig_.StartCamera();
  rig_.StartAgent();
  const auto second = LaunchSecond({"--picture-dir", (rig_.directory.path() / "second").string()});
  EXPECT_TRUE(AgentPrints("another client may use the client id RIG0001"));
  second->Kill();
}

/// A broker that lets an agent do less than it needs.
class DenyingBroker : public AgentLife {
 protected:
  /// @param denied a line of mosquitto's access rules.
  void StartAgainst(const std::string& denied, const std::vector<std::string>& options = {}) {
    const std::string rules = (directory_.path() / "rules").string();
    std::ofstream(rules) << denied << "\ntopic readwrite #\n";
    broker_ = std::make_unique<MqttBroker>(
        std::vector<std::string>{"allow_anonymous true", "user root", "acl_file " + rules});
    client_ = std::make_unique<MqttClient>(broker_->port(), "cameras/#");
    rig_.StartCamera();
    rig_.LaunchAgent(options, broker_->port());
  }

  bool StatusSays(const char* counter) {
    return client_
        ->Await([&](const MqttClient::Message& message) {
          return message.topic == rig_.Topic("status") &&
                 ParseJson(message.payload)["counters"][counter].asInt() > 0;
        })
        .has_value();
  }

  TempDirectory directory_;
  std::unique_ptr<MqttBroker> broker_;
  std::unique_ptr<MqttClient> client_;
};

TEST_F(DenyingBroker, OfAPublicationIsInTheLogOnceAndInTheStatus) {
  StartAgainst("topic deny cameras/+/message/ivs_result");
  ASSERT_TRUE(AgentPrints("broker connected"));
  rig_.Ctl({"car"});
  rig_.Ctl({"car"});
  EXPECT_TRUE(AgentPrints(
      "the broker refuses to publish cameras/RIG0001/message/ivs_result: Not authorized (0x87)"));
  EXPECT_TRUE(StatusSays("refused_by_broker"));
  EXPECT_EQ(Count(rig_.agent->Output(), "the broker refuses"), 1U);
  EXPECT_EQ(rig_.CameraState()["results"]["undelivered"].asInt(), 2);
}

// The one case in which a result is lost: nothing tells it from one that was taken.
TEST_F(DenyingBroker, ThatAcknowledgesWithMqtt311WhatItDeniesGetsItAsDelivered) {
  StartAgainst("topic deny cameras/+/message/ivs_result", {"--mqtt-version", "3.1.1"});
  ASSERT_TRUE(AgentPrints("broker connected"));
  rig_.Ctl({"car"});
  EXPECT_TRUE(WaitUntil([this] {
    const Json::Value results = rig_.CameraState()["results"];
    return results["recognised"].asInt() == 1 && results["undelivered"].asInt() == 0;
  }));
}

}  // namespace
