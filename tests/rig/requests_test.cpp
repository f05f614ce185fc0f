// Requests of an ordinary MQTT client, and the one response that each gets.
#include <ctime>
#include <utility>

#include "rig_test.h"

namespace {

class Requests : public RigTest {
 protected:
  void SetUp() override {
    rig_.StartCamera();
    rig_.StartAgent({"--response-root", "my"});
  }

  /// Publishes raw bytes as a request, and waits for the response.
  Json::Value Send(const std::string& name, const std::string& text) {
    rig_.cloud->Publish(rig_.Topic("request/" + name), text);
    const auto response = rig_.cloud->AwaitTopic(rig_.Topic("response/" + name));
    return response ? ParseJson(response->payload) : Json::Value("no response");
  }
};

TEST_F(Requests, ForTheLastResultIsAnsweredWithIt) {
  rig_.Ctl({"car", "AB12345"});
  AwaitPlate("AB12345");
  EXPECT_EQ(rig_.Request("get_last_result")["result"], true);
  const Json::Value message = rig_.AwaitMessage("get_last_result");
  EXPECT_EQ(Plate(message), "AB12345");
  EXPECT_EQ(message["tag"].asInt(), 26);
}

TEST_F(Requests, ForTheLastResultOfAnEmptyStoreIsRefused) {
  const Json::Value response = rig_.Request("get_last_result");
  EXPECT_EQ(response["result"], false);
  EXPECT_TRUE(response["error"].isString());
}

TEST_F(Requests, ForTheSerialNumberIsAnswered) {
  EXPECT_EQ(rig_.Request("get_sn")["result"], true);
  const Json::Value message = rig_.AwaitMessage("get_sn");
  EXPECT_EQ(message["payload"]["value"], rig_.sn);
  EXPECT_EQ(message["tag"].asInt(), 25);
}

TEST_F(Requests, ForTheTimeIsAnsweredInTheResponseToo) {
  const auto before = static_cast<Json::Int64>(time(nullptr));
  const Json::Value response = rig_.Request("get_device_timestamp");
  EXPECT_EQ(response["result"], true);
  EXPECT_GE(response["response"]["timestamp"].asInt64(), before);
  EXPECT_EQ(rig_.AwaitMessage("get_device_timestamp")["payload"], response["response"]);
}

TEST_F(Requests, AreAnsweredToTheirResponseTopic) {
  MqttClient asking(rig_.broker.port(), "my/answers");
  MqttClient::Extras extras;
  extras.response_topic = "my/answers";
  extras.correlation = std::string("c\0d", 3);
  rig_.cloud->Publish(rig_.Topic("request/get_sn"),
                      R"({"id":7,"version":"1.0","payload":{"type":"get_sn"}})", extras);
  const auto answer = asking.AwaitTopic("my/answers");
  ASSERT_TRUE(answer.has_value());
  EXPECT_EQ(answer->correlation, std::string("c\0d", 3));
  EXPECT_EQ(ParseJson(answer->payload)["id"].asInt(), 7);
  EXPECT_TRUE(rig_.cloud->AwaitTopic(rig_.Topic("response/get_sn")).has_value());
}

TEST_F(Requests, WithAResponseTopicThatIsNotAllowedAreNotCarriedOut) {
  MqttClient asking(rig_.broker.port(), "elsewhere/answers");
  MqttClient::Extras extras;
  extras.response_topic = "elsewhere/answers";
  extras.correlation = "c";
  rig_.cloud->Publish(rig_.Topic("request/ivs_trigger"),
                      R"({"id":7,"version":"1.0","payload":{"type":"ivs_trigger"}})", extras);
  const auto message = rig_.cloud->AwaitTopic(rig_.Topic("response/ivs_trigger"));
  ASSERT_TRUE(message.has_value());
  EXPECT_EQ(message->correlation, "c");
  const Json::Value response = ParseJson(message->payload);
  EXPECT_EQ(response["id"].asInt(), 7);
  EXPECT_EQ(response["code"], "bad_response_topic");
  EXPECT_THAT(response["error"].asString(), testing::HasSubstr("--response-root"));
  EXPECT_EQ(rig_.CameraState()["results"]["recognised"].asInt(), 0);
  asking.Publish("elsewhere/answers", "last");
  EXPECT_EQ(asking.AwaitTopic("elsewhere/answers")->payload, "last") << "nothing came before it";
}

TEST_F(Requests, ThatAreMalformedAreAnsweredWithACode) {
  const std::pair<const char*, const char*> rows[] = {
      {"", "not_json"},
      {"no json", "not_json"},
      {"[]", "not_json"},
      {"5", "not_json"},
      {"{}", "wrong_version"},
      {R"({"id":"1"})", "wrong_version"},
      {R"({"id":"1","version":"1.0"})", "no_payload"},
      {R"({"id":"1","version":1.0,"payload":{"type":"get_sn"}})", "wrong_version"},
      {R"({"id":[],"version":"1.0","payload":{"type":"get_sn"}})", "bad_member"},
      {R"({"version":"1.0","payload":{"type":"get_sn"},"expires_ms":-1})", "bad_member"},
      {R"({"version":"1.0","payload":{"type":"get_sn"},"idempotency_key":5})", "bad_member"},
      {R"({"version":"1.0","payload":{"type":"gpio_out"}})", "refused"},
  };
  for (const auto& [text, code] : rows) {
    const Json::Value response = Send("get_sn", text);
    EXPECT_EQ(response["result"], false) << text;
    EXPECT_EQ(response["code"], code) << text;
    EXPECT_TRUE(response["error"].isString()) << text;
  }
  EXPECT_EQ(rig_.Request("get_sn")["result"], true);
}

TEST_F(Requests, ThatAreCutOffGetTheirIdBack) {
  const Json::Value response = Send("get_sn", R"({"id":"cut","version":"1.0","payl)");
  EXPECT_EQ(response["code"], "not_json");
  EXPECT_EQ(response["id"], "cut");
}

TEST_F(Requests, OfAnUnknownNameAreAnsweredWithACode) {
  const Json::Value response = rig_.Request("unheard_of");
  EXPECT_EQ(response["result"], false);
  EXPECT_EQ(response["code"], "unknown_name");
  EXPECT_THAT(response["error"].asString(), testing::HasSubstr("unheard_of"));
}

TEST_F(Requests, ThatAreTooLargeGetACodeAndTheirIdBack) {
  const Json::Value response =
      Send("get_sn", R"({"id":"large","payload":")" + std::string(300000, 'x') + "\"}");
  EXPECT_EQ(response["result"], false);
  EXPECT_EQ(response["code"], "too_large");
  EXPECT_EQ(response["id"], "large");
  EXPECT_EQ(rig_.Request("get_sn")["result"], true);
}

TEST_F(Requests, ThatWereRetainedAreNotCarriedOut) {
  MqttClient::Extras extras;
  extras.retain = true;
  rig_.cloud->Publish(rig_.Topic("request/ivs_trigger"),
                      R"({"id":"1","version":"1.0","payload":{}})", extras);
  const auto response = rig_.cloud->AwaitTopic(rig_.Topic("response/ivs_trigger"));
  ASSERT_TRUE(response);
  EXPECT_EQ(ParseJson(response->payload)["code"], "retained");
  rig_.agent->Terminate();
  const int passed = rig_.CameraState()["results"]["recognised"].asInt();
  rig_.StartAgent();
  rig_.Request("get_sn");
  EXPECT_EQ(rig_.CameraState()["results"]["recognised"].asInt(), passed);
}

}  // namespace
