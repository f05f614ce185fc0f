// The agent with brokers that were not written here: the same tests with each.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <vector>

#include "request_cases.h"
#include "rig_test.h"

namespace {

struct BrokerRow {
  const char* name;
  BrokerProgram (*program)();
};

std::ostream& operator<<(std::ostream& stream, const BrokerRow& row) { return stream << row.name; }

class Brokers : public RigTest, public testing::WithParamInterface<BrokerRow> {
 protected:
  Brokers() : RigTest(GetParam().program()) {
    // The five seconds between two records pass in 50 ms.
    rig_.more_environment["TARVEX_CLOCK_SCALE"] = "100";
  }

  void SetUp() override {
    rig_.StartCamera();
    rig_.StartAgent({"--response-root", "my"});
  }

  /// What a client that comes now is told of the camera at once.
  Json::Value RetainedStatus() {
    MqttClient late(rig_.broker.access(), rig_.Topic("status"));
    const auto message = late.AwaitTopic(rig_.Topic("status"));
    EXPECT_TRUE(message && message->retained);
    return message ? ParseJson(message->payload) : Json::Value();
  }

  /// A request's response, as it comes to the topic that the request names.
  std::string CorrelationOnOwnTopic(const std::string& correlation) {
    MqttClient asking(rig_.broker.access(), "my/answers");
    MqttClient::Extras extras;
    extras.response_topic = "my/answers";
    extras.correlation = correlation;
    asking.Publish(rig_.Topic("request/get_sn"), R"({"version":"1.0","payload":{"type":"get_sn"}})",
                   extras);
    const auto answer = asking.AwaitTopic("my/answers");
    return answer ? answer->correlation : "no response";
  }

  /// How long the broker takes to acknowledge a message of a result's size that somebody hears.
  std::chrono::microseconds MedianRoundTrip(const std::string& payload) {
    MqttClient client(rig_.broker.access(), "measured", [](const MqttClient::Message&) {});
    std::vector<std::chrono::microseconds> times(201);
    for (auto& time : times) {
      time = client.RoundTrip("measured", payload);
    }
    std::nth_element(times.begin(), times.begin() + 100, times.end());
    return times[100];
  }
};

TEST_P(Brokers, TakeResultsInOrderAndAcknowledgeThem) {
  for (int i = 0; i < 10; ++i) {
    rig_.Ctl({"car"});
  }
  Json::Value message;
  for (unsigned int id = 1; id <= 10; ++id) {
    message = rig_.AwaitMessage("ivs_result");
    EXPECT_EQ(PlateResult(message)["plateid"].asUInt(), id);
    EXPECT_EQ(message["tag"].asInt(), 11);
  }
  EXPECT_TRUE(WaitUntil([this] { return Undelivered() == 0; }));
  rig_.agent->Terminate();
  MqttClient::inspector = {};
  RecordProperty("round_trip_us", static_cast<int>(MedianRoundTrip(Compact(message)).count()));
}

TEST_P(Brokers, CarryEveryRequestAndItsResponse) {
  rig_.Ctl({"car", "AB12345"});
  AwaitPlate("AB12345");
  if (rig_.broker.program().speaks_mqtt_5) {
    EXPECT_EQ(CorrelationOnOwnTopic("corr-7"), "corr-7");
  }
  std::vector<RequestCase> cases = RequestCases();
  // After it the camera's services are away for a moment.
  std::stable_partition(cases.begin(), cases.end(),
                        [](const RequestCase& row) { return row.name != "reboot_dev"; });
  for (const RequestCase& row : cases) {
    const Json::Value response = rig_.Request(row.name, row.good_body);
    EXPECT_EQ(InShort(response), row.done) << row.name << " " << response;
    if (response.isMember("answer")) {
      EXPECT_EQ(rig_.AwaitMessage(row.name)["payload"], response["answer"]);
    }
  }
}

TEST_P(Brokers, KeepTheStatusAndPublishTheWill) {
  EXPECT_EQ(RetainedStatus()["online"], true);
  rig_.agent->Kill();
  EXPECT_TRUE(rig_.AwaitOnline(false));
  EXPECT_EQ(RetainedStatus()["online"], false);
  rig_.StartAgent();
  EXPECT_EQ(RetainedStatus()["online"], true);
}

TEST_P(Brokers, LoseNothingWhenTheyAreAwayAndComeBack) {
  rig_.Ctl({"car"});
  rig_.AwaitMessage("ivs_result");
  ASSERT_TRUE(WaitUntil([this] { return Undelivered() == 0; }));
  rig_.broker.Freeze();
  rig_.Ctl({"car"});  // is on its way when the broker is killed
  MissCars(4);
  BrokerComesBack();
  EXPECT_EQ(Undelivered(), 5);
  Push(100);
  for (unsigned int id = 2; id <= 6; ++id) {
    EXPECT_EQ(AwaitRedelivered(), id);
  }
  EXPECT_EQ(rig_.AwaitMessage("offline_record")["payload"]["body"]["offline_record"].asInt(), 0);
  EXPECT_EQ(Undelivered(), 0);
  rig_.Ctl({"car", "AFTER01"});
  EXPECT_EQ(AwaitPlate("AFTER01")["tag"].asInt(), 11);
}

TEST_P(Brokers, AreConnectedToAgainWhenTheyWereRestarted) {
  rig_.broker.Stop();
  ASSERT_TRUE(WaitUntil([this] { return !AgentIsConnected(); }));
  BrokerComesBack();
  rig_.Ctl({"car", "AFTER01"});
  EXPECT_EQ(AwaitPlate("AFTER01")["tag"].asInt(), 11);
  EXPECT_EQ(rig_.Request("get_sn")["result"], true);
}

std::string NameOfBroker(const testing::TestParamInfo<BrokerRow>& test) { return test.param.name; }

INSTANTIATE_TEST_SUITE_P(Rig, Brokers,
                         testing::Values(BrokerRow{"mosquitto", [] { return Mosquitto(); }},
                                         BrokerRow{"mosquitto_3_1_1", MosquittoOfMqtt311},
                                         BrokerRow{"nats_server", NatsServerForMqtt},
                                         BrokerRow{"aedes", Aedes}),
                         NameOfBroker);

// Those that ./dev test does not install.
INSTANTIATE_TEST_SUITE_P(Heavy, Brokers, testing::Values(BrokerRow{"ejabberd", Ejabberd}),
                         NameOfBroker);

}  // namespace
