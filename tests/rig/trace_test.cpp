// What the programs tell of a message on its way through all of them.
#include <algorithm>
#include <optional>

#include "platform/nats_handle.h"
#include "platform/nats_link.h"
#include "rig_test.h"

namespace {

class TracedRig : public RigTest {
 protected:
  void SetUp() override {
    natsSubscription* created = nullptr;
    natsConnection_SubscribeSync(&created, link_->get(), "TRACE_MESSAGES");
    natsConnection_FlushTimeout(link_->get(), 10000);
    subscription_.reset(created);
  }

  void StartTraced() {
    rig_.StartCamera({"--trace"});
    rig_.StartAgent({"--trace"});
  }

  /// Takes what comes until there is such an event; the events so far, by time.
  template <class Condition>
  std::vector<Json::Value> EventsUntil(Condition is_last) {
    std::vector<Json::Value> events;
    bool is_over = false;
    while (!is_over) {
      natsMsg* received = nullptr;
      if (natsSubscription_NextMsg(&received, subscription_.get(), 20000) != NATS_OK) {
        ADD_FAILURE() << "no such event";
        break;
      }
      const tarvex::NatsMessage message(received);
      events.push_back(ParseJson(natsMsg_GetData(received)));
      is_over = is_last(events.back());
    }
    std::stable_sort(events.begin(), events.end(), [](const auto& one, const auto& other) {
      return one["at_us"].asInt64() < other["at_us"].asInt64();
    });
    return events;
  }

  static std::string HandedOverPlateId(const Json::Value& event) {
    const std::string body = FromBase64(event["body"].asString());
    return body.size() == 552 ? std::to_string(static_cast<unsigned char>(body[80])) : "";
  }

  std::shared_ptr<tarvex::NatsLink> link_ =
      tarvex::NatsLink::Connect({"127.0.0.1", rig_.bus.port()}, "listener");
  tarvex::NatsSubscription subscription_;
};

TEST_F(TracedRig, TellsOfAResultFromTheStoreToItsDelivery) {
  StartTraced();
  rig_.Ctl({"car", "AB12345"});
  std::vector<std::string> told;
  for (const Json::Value& event :
       // Of the last two each program tells one.
       EventsUntil([ends = 0](const Json::Value& event) mutable {
         ends += event["event"] == "delivered" ? 1 : 0;
         ends += event["event"] == "acknowledged" && event["name"] == "ivs_result" ? 1 : 0;
         return ends == 2;
       })) {
    const std::string plate_id =
        event["event"] == "handed_over" ? HandedOverPlateId(event) : event["plate_id"].asString();
    if (!plate_id.empty()) {
      told.push_back(event["by"].asString() + " " + event["event"].asString() + " " + plate_id);
      EXPECT_EQ(event["sn"], rig_.sn);
    }
  }
  EXPECT_THAT(told,
              testing::ElementsAre("virtual_camera stored 1", "virtual_camera announced 1",
                                   "cloud_agent handed_over 1", "cloud_agent published 1",
                                   "cloud_agent acknowledged 1", "virtual_camera delivered 1"));
}

TEST_F(TracedRig, TellsOfARequestWithItsBusRequestAndItsResponse) {
  StartTraced();
  rig_.Request("gpio_out", R"({"io":2,"value":1,"delay":0})");
  std::vector<Json::Value> told;
  for (const Json::Value& event :
       EventsUntil([](const Json::Value& event) { return event["event"] == "response"; })) {
    if (event.isMember("request")) {
      told.push_back(event);
    }
  }
  ASSERT_EQ(told.size(), 3U);
  EXPECT_EQ(told[0]["event"], "request");
  EXPECT_EQ(told[0]["name"], "gpio_out");
  EXPECT_EQ(told[1]["event"], "bus_request");
  EXPECT_EQ(told[1]["queue"], "EVS_GPIO_CONTROL");
  EXPECT_EQ(FromBase64(told[1]["body"].asString()).size(), 12U);
  EXPECT_EQ(told[1]["timeout_ms"], 300);
  EXPECT_EQ(told[1]["outcome"], "answered");
  EXPECT_EQ(told[2]["event"], "response");
  EXPECT_EQ(ParseJson(told[2]["payload"].asString())["result"], true);
  EXPECT_EQ(told[0]["request"], told[2]["request"]);
  EXPECT_EQ(told[0]["request"], told[1]["request"]);
}

TEST_F(TracedRig, TellsNothingUnlessItIsAskedTo) {
  rig_.StartCamera();
  rig_.StartAgent();
  rig_.Ctl({"car", "AB12345"});
  AwaitPlate("AB12345");
  rig_.Request("gpio_out", R"({"io":2,"value":1,"delay":0})");
  EXPECT_TRUE(
      WaitUntil([this] { return rig_.CameraState()["results"]["undelivered"].asInt() == 0; }));
  natsMsg* received = nullptr;
  EXPECT_EQ(natsSubscription_NextMsg(&received, subscription_.get(), 200), NATS_TIMEOUT);
  natsMsg_Destroy(received);
}

}  // namespace
