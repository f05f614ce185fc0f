// What makes a request a call that can be relied on: in time, once, under load, and with
// a status that says what is there.
#include <map>
#include <set>

#include "rig_test.h"

namespace {

using testing::HasSubstr;

class ReliableRequests : public RigTest {
 protected:
  void SetUp() override {
    rig_.StartCamera();
    rig_.StartAgent();
  }

  /// Sends a request as it stands, and waits for nothing.
  void Send(const std::string& name, const std::string& text,
            const MqttClient::Extras& extras = MqttClient::Extras()) {
    rig_.cloud->Publish(rig_.Topic("request/" + name), text, extras);
  }

  Json::Value ResponseTo(const std::string& name, const std::string& id) {
    const auto response = rig_.cloud->Pick([&](const MqttClient::Message& message) {
      return message.topic == rig_.Topic("response/" + name) &&
             ParseJson(message.payload)["id"] == id;
    });
    return response ? ParseJson(response->payload) : Json::Value("no response");
  }

  static std::string Pulse(const std::string& id, const std::string& more = "") {
    return R"({"id":")" + id + R"(","version":"1.0",)" + more +
           R"("payload":{"type":"gpio_out","body":{"io":1,"value":2,"delay":100}}})";
  }

  int Pulses() { return rig_.CameraState()["gpio"]["pulses"][1].asInt(); }

  /// Has the agent wait for a service for three seconds.
  void KeepTheAgentBusy() {
    rig_.Ctl({"service", "ALG_REQUEST_MESSAGE", "slow", "60000"});
    Send("snapshot", R"({"id":"slow","version":"1.0","payload":{"type":"snapshot"}})");
  }
};

TEST_F(ReliableRequests, MoveNothingOnceTheyHaveExpired) {
  KeepTheAgentBusy();
  MqttClient::Extras for_one_second;
  for_one_second.expiry_s = 1;
  Send("gpio_out", Pulse("mqtt"), for_one_second);
  Send("gpio_out", Pulse("member", R"("expires_ms":500,)"));
  Send("gpio_out", Pulse("patient", R"("expires_ms":600000,)"));
  EXPECT_EQ(ResponseTo("gpio_out", "mqtt")["code"], "expired");
  EXPECT_EQ(ResponseTo("gpio_out", "member")["code"], "expired");
  const Json::Value response = ResponseTo("gpio_out", "patient");
  EXPECT_EQ(response["result"], true);
  EXPECT_GE(response["waited_ms"].asInt(), 1000);
  EXPECT_EQ(Pulses(), 1);
}

TEST_F(ReliableRequests, WithAKeyPulseTheGateOnce) {
  const std::string key = R"("idempotency_key":"open-1",)";
  KeepTheAgentBusy();
  Send("gpio_out", Pulse("first", key));
  Send("gpio_out", Pulse("again", key));
  EXPECT_FALSE(ResponseTo("gpio_out", "first").isMember("repeated"));
  const Json::Value again = ResponseTo("gpio_out", "again");
  EXPECT_EQ(again["repeated"], true);
  EXPECT_EQ(again["result"], true);
  EXPECT_EQ(Pulses(), 1);
}

TEST_F(ReliableRequests, WithAKeyAreNotCarriedOutAgainAfterAReconnection) {
  const std::string key = R"("idempotency_key":"open-1",)";
  Send("gpio_out", Pulse("first", key));
  ResponseTo("gpio_out", "first");
  rig_.broker.Kill();
  rig_.broker.Start();
  ASSERT_TRUE(WaitUntil([this] { return rig_.cloud->IsSubscribed(); }));
  ASSERT_TRUE(rig_.AwaitOnline(true));
  Send("gpio_out", Pulse("again", key));
  EXPECT_EQ(ResponseTo("gpio_out", "again")["repeated"], true);
  EXPECT_EQ(Pulses(), 1);
}

TEST_F(ReliableRequests, AllAtOnceEachGetTheirAnswerOrAreToldThatItIsBusy) {
  constexpr int kRequests = 1000;
  for (int i = 0; i < kRequests; ++i) {
    Send("get_sn",
         R"({"id":)" + std::to_string(i) + R"(,"version":"1.0","payload":{"type":"get_sn"}})");
  }
  std::map<int, int> responses;
  int answered = 0;
  for (int i = 0; i < kRequests; ++i) {
    const auto message = rig_.cloud->Pick([this](const MqttClient::Message& candidate) {
      return candidate.topic == rig_.Topic("response/get_sn");
    });
    ASSERT_TRUE(message) << "after " << i;
    const Json::Value response = ParseJson(message->payload);
    ++responses[response["id"].asInt()];
    if (response["result"].asBool()) {
      ++answered;
      ASSERT_EQ(response["answer"]["value"], rig_.sn) << response;
    } else {
      ASSERT_EQ(response["code"], "busy") << response;
    }
  }
  EXPECT_EQ(responses.size(), std::size_t{kRequests});
  EXPECT_GE(answered, 64);
  std::set<int> message_ids;
  for (int i = 0; i < answered; ++i) {
    message_ids.insert(rig_.AwaitMessage("get_sn")["id"].asInt());
  }
  EXPECT_EQ(message_ids.size(), static_cast<std::size_t>(answered));
}

TEST_F(ReliableRequests, AreToldThatTheBusIsNotThere) {
  rig_.bus.Kill();
  ASSERT_TRUE(WaitUntil([this] { return !rig_.AgentStatus()["health"]["bus"].asBool(); }));
  const Json::Value response = rig_.Request("snapshot");
  EXPECT_EQ(response["code"], "offline_device");
  EXPECT_THAT(response["error"].asString(), HasSubstr("the bus is not there"));
  EXPECT_EQ(rig_.Request("get_sn")["result"], true);
  rig_.bus.Start();
  EXPECT_TRUE(WaitUntil([this] { return rig_.Request("snapshot")["result"].asBool(); }));
}

TEST_F(ReliableRequests, TellWhatTheDeviceRefusedWhereTheyAreDiagnosed) {
  rig_.agent->Terminate();
  rig_.StartAgent({"--diagnose"});
  const Json::Value response =
      rig_.Request("white_list_operator", R"({"operator_type":"update_or_add","dldb_rec":{}})");
  EXPECT_EQ(response["result"], true);
  EXPECT_EQ(response["answer"]["state_code"].asInt(), 200);
  EXPECT_EQ(response["bus"][0]["queue"], "BUS_WHITE_LIST_INFO");
  EXPECT_EQ(response["bus"][0]["state_code"].asInt(), 400);
  EXPECT_THAT(response["bus"][0]["device_error"].asString(), HasSubstr("plate"));
}

TEST_F(ReliableRequests, AreCountedInAStatusThatSaysWhatIsThere) {
  rig_.Request("get_sn");
  const Json::Value status = rig_.AgentStatus();
  EXPECT_EQ(status["online"], true);
  EXPECT_EQ(status["device"], true);
  EXPECT_EQ(status["health"]["bus"], true);
  EXPECT_FALSE(status["health"]["databases"].empty());
  EXPECT_EQ(status["health"]["services"]["BUS_GET_IVS_INFO"]["answers"], true);
  EXPECT_THAT(status["versions"]["plugin"].asString(), testing::MatchesRegex("[0-9a-f]{40}"));
  EXPECT_NE(status["versions"]["agent"].asString(), "");
  EXPECT_NE(status["versions"]["camera"].asString(), "");
  EXPECT_GT(status["started_at"].asInt64(), 0);
  EXPECT_EQ(status["counters"]["requests"].asInt(), 1);
}

TEST_F(ReliableRequests, AreAnsweredByAnAgentWhoseCameraIsGone) {
  rig_.camera->Kill();
  EXPECT_TRUE(WaitUntil([this] { return !rig_.AgentStatus()["device"].asBool(); }));
  EXPECT_EQ(rig_.AgentStatus()["online"], true);
  EXPECT_THAT(rig_.Request("snapshot")["error"].asString(),
              HasSubstr("nobody serves ALG_REQUEST_MESSAGE"));
}

}  // namespace
