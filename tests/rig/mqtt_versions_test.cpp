// What the agent does with a real broker in either version of MQTT, and with several brokers.
#include "rig_test.h"
#include "support/loopback_port.h"

namespace {

using testing::HasSubstr;

class MqttVersions : public RigTest {
 protected:
  void SetUp() override { rig_.StartCamera(); }

  static std::string Loopback(int port) { return "127.0.0.1:" + std::to_string(port); }
};

TEST_F(MqttVersions, AreFiveWhereTheBrokerHasIt) {
  rig_.StartAgent();
  EXPECT_THAT(rig_.agent->Output(), HasSubstr("as RIG0001, with MQTT 5"));
}

TEST_F(MqttVersions, Of311RefuseARequestThatTheBrokerHasKept) {
  MqttClient::Extras extras;
  extras.retain = true;
  rig_.cloud->Publish(rig_.Topic("request/ivs_trigger"),
                      R"({"id":"1","version":"1.0","payload":{}})", extras);
  rig_.StartAgent({"--mqtt-version", "3.1.1"});
  const auto response = rig_.cloud->AwaitTopic(rig_.Topic("response/ivs_trigger"));
  ASSERT_TRUE(response);
  EXPECT_EQ(ParseJson(response->payload)["code"], "retained");
  EXPECT_EQ(rig_.CameraState()["results"]["recognised"].asInt(), 0);
}

TEST_F(MqttVersions, Of311RespondOnTheTopicOfTheContractOnly) {
  rig_.StartAgent({"--mqtt-version", "3.1.1"});
  MqttClient asking(rig_.broker.port(), "my/answers");
  MqttClient::Extras extras;
  extras.response_topic = "my/answers";
  extras.correlation = "c";
  rig_.cloud->Publish(rig_.Topic("request/get_sn"),
                      R"({"id":"1","version":"1.0","payload":{"type":"get_sn"}})", extras);
  const auto response = rig_.cloud->AwaitTopic(rig_.Topic("response/get_sn"));
  ASSERT_TRUE(response);
  EXPECT_EQ(ParseJson(response->payload)["result"], true);
  EXPECT_EQ(response->correlation, "");
  asking.Publish("my/answers", "last");
  EXPECT_EQ(asking.AwaitTopic("my/answers")->payload, "last") << "nothing came before it";
}

TEST_F(MqttVersions, Of311CountAResultAsDeliveredThatNobodyHeard) {
  rig_.StartAgent({"--mqtt-version", "3.1.1"});
  rig_.cloud.reset();
  rig_.Ctl({"car"});
  EXPECT_TRUE(WaitUntil([this] {
    const Json::Value results = rig_.CameraState()["results"];
    return results["recognised"].asInt() == 1 && results["undelivered"].asInt() == 0;
  }));
}

TEST_F(MqttVersions, AreSpokenWithTheBrokerThatIsThereOfSeveral) {
  MqttBroker second;
  rig_.cloud = std::make_unique<MqttClient>(second.port(), "cameras/#");
  rig_.broker.Kill();
  rig_.StartAgent({"--broker", "mqtt://localhost:" + std::to_string(second.port())});
  EXPECT_THAT(rig_.agent->Output(), HasSubstr("no connection to " + Loopback(rig_.broker.port()) +
                                              ": Connection refused"));
  rig_.Ctl({"car", "HEARD01"});
  AwaitPlate("HEARD01");
}

}  // namespace
