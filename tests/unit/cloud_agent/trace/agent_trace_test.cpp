// What an agent tells of each message while it is traced.
#include "cloud_agent/trace/agent_trace.h"

#include "../agent_fixture.h"

namespace agent {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TracedAgent : public AgentTest {
 protected:
  TracedAgent() { trace_ = &agent_trace_; }

  /// The events since the last call, without the members that all have but "event".
  std::vector<std::string> Told() {
    std::vector<std::string> lines;
    for (const std::string& text : std::exchange(told_, {})) {
      Json::Value event;
      EXPECT_TRUE(Json::String2Json(text, event)) << text;
      for (const char* member : {"by", "sn", "at_us"}) {
        Json::Value removed;
        EXPECT_TRUE(event.removeMember(member, &removed)) << member;
      }
      std::string line;
      Json::Json2String(event, line);
      lines.push_back(line);
    }
    return lines;
  }

  void StartAndForget() {
    StartAndConnect();
    Told();
  }

  static Json::Value Result(unsigned int plate_id) {
    Json::Value payload;
    payload["AlarmInfoPlate"]["result"]["PlateResult"]["plateid"] = plate_id;
    return payload;
  }

  void BusRequestEnds(tarvex::BusOutcome outcome, const std::string& reply = "") {
    tarvex::BusRequest request;
    request.queue = "EVS_GPIO_CONTROL";
    request.body = "body";
    request.timeout_ms = 300;
    request.outcome = outcome;
    request.time = std::chrono::microseconds(1234);
    request.reply = reply;
    agent_->OnBusRequest(request);
  }

  std::vector<std::string> told_;
  AgentTrace agent_trace_{
      tarvex::Trace("cloud_agent", "CAM1",
                    [this](std::string text) { told_.push_back(std::move(text)); }),
      "1766", Now()};
};

TEST_F(TracedAgent, TellsOfTheLink) {
  StartAndConnect();
  EXPECT_THAT(Told(), ElementsAre(R"({"event":"link","up":true})"));
  link_.listener->OnLinkDown("no route");
  EXPECT_THAT(Told(), ElementsAre(R"({"event":"link","reason":"no route","up":false})"));
}

TEST_F(TracedAgent, TellsOfABusMessageWhenThePlugInGetsIt) {
  StartAndForget();
  BusDelivers("EVT_SRV_EXTERNAL_TRIGGER", "text");
  EXPECT_THAT(Told(), ElementsAre(R"({"body":"dGV4dA==","event":"handed_over",)"
                                  R"("topic":"EVT_SRV_EXTERNAL_TRIGGER"})"));
  EXPECT_THAT(calls_, ElementsAre("Deliver EVT_SRV_EXTERNAL_TRIGGER"));
}

TEST_F(TracedAgent, TellsNothingOfAResultThatWaitsForItsTurn) {
  StartAndForget();
  BusDelivers("BUS_SRV_IVS_RESULT", "1");
  BusDelivers("BUS_SRV_IVS_RESULT", "2");
  EXPECT_THAT(Told(), ElementsAre(R"({"body":"MQ==","event":"handed_over",)"
                                  R"("topic":"BUS_SRV_IVS_RESULT"})"));
}

TEST_F(TracedAgent, TellsOfAPublicationAndItsAcknowledgement) {
  StartAndForget();
  AdapterPublishes("ivs_result", 11, Result(7));
  loop_.Advance(milliseconds(5));
  link_.listener->OnAcknowledged(1, 0);
  EXPECT_THAT(Told(), ElementsAre(R"({"bytes":127,"event":"published","name":"ivs_result",)"
                                  R"("plate_id":7,"publication":1,"tag":11,)"
                                  R"("topic":"cameras/CAM1/message/ivs_result"})",
                                  R"({"answer":"taken","event":"acknowledged",)"
                                  R"("name":"ivs_result","plate_id":7,"publication":1,"tag":11,)"
                                  R"("us":5000})",
                                  R"({"event":"confirmed","tag":11})"));
}

TEST_F(TracedAgent, TellsOfAnAcknowledgementBeforeThePlugInHearsOfIt) {
  StartAndForget();
  AdapterPublishes("gpio_in", 13);
  Told();
  adapter_->on_published = [this] { BusRequestEnds(tarvex::BusOutcome::kAnswered); };
  link_.listener->OnAcknowledged(1, 0);
  EXPECT_THAT(Told(),
              ElementsAre(::testing::HasSubstr("acknowledged"), ::testing::HasSubstr("confirmed"),
                          ::testing::HasSubstr("bus_request")));
}

TEST_F(TracedAgent, TellsNothingOfAnAcknowledgementAfterALoss) {
  StartAndForget();
  AdapterPublishes("gpio_in", 13);
  link_.listener->OnLinkDown("why");
  Told();
  link_.listener->OnAcknowledged(1, 0);
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(TracedAgent, TellsWhatTheBrokerAnswered) {
  StartAndForget();
  AdapterPublishes("gpio_in", 13);
  AdapterPublishes("gpio_in", 13);
  Told();
  link_.listener->OnAcknowledged(1, kNoMatchingSubscribers);
  link_.listener->OnAcknowledged(2, 0x87);
  EXPECT_THAT(Told(), ElementsAre(::testing::HasSubstr(R"("answer":"unheard")"),
                                  ::testing::HasSubstr(R"("event":"confirmed")"),
                                  ::testing::HasSubstr(R"("answer":"refused")")));
}

TEST_F(TracedAgent, TellsOfAMessageThatIsNotPublished) {
  StartAndForget();
  link_.result = PublishResult::kLinkDown;
  AdapterPublishes("ivs_result", 11, Result(7));
  EXPECT_THAT(Told(), ElementsAre(R"({"event":"not_published","name":"ivs_result","plate_id":7,)"
                                  R"("tag":11,"why":"not sent: link down"})"));
}

TEST_F(TracedAgent, TellsOfAReDeliveryThatHasToWait) {
  StartAndForget();
  AdapterPublishes("ivs_result", 16, Result(7));
  Told();
  AdapterPublishes("ivs_result", 16, Result(8));
  EXPECT_THAT(Told(),
              ElementsAre(R"({"event":"not_published","name":"ivs_result","plate_id":8,"tag":16,)"
                          R"("why":"dropped: another re-delivery is not acknowledged yet"})"));
}

TEST_F(TracedAgent, TellsOfMessagesThatALossLeavesUnconfirmed) {
  StartAndForget();
  AdapterPublishes("ivs_result", 11, Result(7));
  Told();
  link_.listener->OnLinkDown("why");
  EXPECT_EQ(Told().at(1), R"({"event":"unconfirmed","name":"ivs_result","plate_id":7,)"
                          R"("publication":1,"tag":11})");
}

TEST_F(TracedAgent, TellsOfARequestFromItsTurnToItsResponse) {
  StartAndForget();
  adapter_->on_request = [this] {
    BusRequestEnds(tarvex::BusOutcome::kAnswered, "reply");
    loop_.Advance(milliseconds(2));
    AdapterPublishes("get_sn", 25);
  };
  CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  EXPECT_THAT(Told(),
              ElementsAre(R"({"event":"request","name":"get_sn",)"
                          R"("payload":"{\"version\":\"1.0\",\"payload\":{}}","request":"1766-1",)"
                          R"("topic":"cameras/CAM1/request/get_sn","waited_us":0})",
                          R"({"event":"request_handed_over","name":"get_sn","payload":"{}",)"
                          R"("version":"1.0"})",
                          R"({"body":"Ym9keQ==","event":"bus_request","outcome":"answered",)"
                          R"("queue":"EVS_GPIO_CONTROL","reply":"cmVwbHk=","request":"1766-1",)"
                          R"("timeout_ms":300,"us":1234})",
                          R"({"bytes":67,"event":"published","name":"get_sn","publication":1,)"
                          R"("request":"1766-1","tag":25,"topic":"cameras/CAM1/message/get_sn"})",
                          R"({"event":"response",)"
                          R"("payload":"{\"answer\":\"p\",\"response\":null,\"result\":true,)"
                          R"(\"waited_ms\":0}","request":"1766-1",)"
                          R"("topic":"cameras/CAM1/response/get_sn","us":2000})"));
}

TEST_F(TracedAgent, TellsOfABusRequestBetweenRequestsWithoutOne) {
  StartAndForget();
  CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  Told();
  BusRequestEnds(tarvex::BusOutcome::kTimedOut);
  EXPECT_THAT(Told(), ElementsAre(R"({"body":"Ym9keQ==","event":"bus_request",)"
                                  R"("outcome":"timed_out","queue":"EVS_GPIO_CONTROL",)"
                                  R"("timeout_ms":300,"us":1234})"));
}

TEST_F(TracedAgent, TellsTheCorrelationOfARequestWhereItIsAShortText) {
  StartAndForget();
  for (const std::string& correlation :
       {std::string("c1"), std::string("\xFF"), std::string(129, 'c')}) {
    InboundRequest inbound;
    inbound.has_correlation_data = true;
    inbound.correlation_data = correlation;
    agent_trace_.RequestBegins(inbound, "get_sn");
    Json::Value event;
    Json::String2Json(std::exchange(told_, {}).at(0), event);
    EXPECT_EQ(event["correlation"], correlation == "c1" ? Json::Value("c1") : Json::Value());
  }
}

TEST_F(TracedAgent, TellsThatARequestIsOnlyItsBeginning) {
  StartAndForget();
  InboundRequest inbound;
  inbound.payload = "begin";
  inbound.size = 1000000;
  agent_trace_.RequestBegins(inbound, "get_sn");
  EXPECT_THAT(Told(), ElementsAre(::testing::HasSubstr(R"("cut":true)")));
}

TEST_F(TracedAgent, TellsNothingOfAResponseThatIsLost) {
  StartAndForget();
  link_.result = PublishResult::kLinkDown;
  CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  EXPECT_THAT(Told(), ElementsAre(::testing::HasSubstr(R"("event":"request")"),
                                  ::testing::HasSubstr(R"("event":"request_handed_over")")));
}

TEST_F(TracedAgent, TellsNothingOfARequestThatThePlugInIsNotGiven) {
  StartAndForget();
  CloudSends("get_sn", R"({"version":"1.0"})");
  EXPECT_THAT(Told(), ElementsAre(::testing::HasSubstr(R"("event":"request")"),
                                  ::testing::HasSubstr(R"("event":"response")")));
}

TEST_F(TracedAgent, TellsEveryByteOfAPayload) {
  StartAndForget();
  CloudSends("get_sn", "{\"version\":\"1.0\",\"payload\":\"\xff\"}");
  EXPECT_THAT(Told(), ::testing::Contains(::testing::HasSubstr(R"("payload_base64":"Iv8i")")));
}

TEST_F(TracedAgent, TellsNothingOfItsOwnMessages) {
  StartAndForget();
  loop_.Advance(std::chrono::seconds(11));  // a status
  link_.listener->OnAcknowledged(1, 0);
  EXPECT_THAT(Told(), IsEmpty());
}

}  // namespace
}  // namespace agent
