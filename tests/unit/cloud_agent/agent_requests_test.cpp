// How an agent answers the requests of the cloud.
#include "agent_fixture.h"

namespace agent {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST_F(AgentTest, AnswersARequest) {
  StartAndConnect();
  CloudSends("get_sn", R"({"id":"r1","version":"1.0","payload":{"type":"get_sn"}})");
  EXPECT_THAT(calls_, ElementsAre(R"(Request get_sn {"type":"get_sn"})"));
  EXPECT_THAT(link_.sent,
              ElementsAre(R"(cameras/CAM1/response/get_sn )"
                          R"({"id":"r1","response":null,"result":true,"waited_ms":0})"));
}

TEST_F(AgentTest, GivesTheAnswersMessageTheIdOfItsRequest) {
  StartAndConnect();
  adapter_->on_request = [this] { AdapterPublishes("get_sn", 25, Json::Value("S1")); };
  CloudSends("get_sn", R"({"id":"r1","version":"1.0","payload":{}})");
  EXPECT_THAT(link_.sent, ElementsAre(R"(cameras/CAM1/message/get_sn )"
                                      R"({"id":"r1","payload":"S1","tag":25,"version":"1.0"})",
                                      R"(cameras/CAM1/response/get_sn )"
                                      R"({"answer":"S1","id":"r1","response":null,"result":true,)"
                                      R"("waited_ms":0})"));
}

TEST_F(AgentTest, DropsNoAnswerBecauseTheBrokerIsSlow) {
  max_requests_ = 1000;
  StartAndConnect();
  adapter_->on_request = [this] { AdapterPublishes("get_sn", 25, Json::Value("S1")); };
  for (int i = 0; i < 300; ++i) {
    CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  }
  EXPECT_EQ(link_.sent.size(), 512U);  // 256 answers are owed for
  for (std::uint64_t id = 1; id <= link_.last_id; ++id) {
    link_.listener->OnAcknowledged(id, 0);
    loop_.Run();
  }
  EXPECT_EQ(link_.sent.size(), 600U);
  EXPECT_EQ(agent_->Counters().dropped_backlog_full, 0U);
}

TEST_F(AgentTest, GoesOnWithTheRequestsThatWaitedForABrokerThatIsGone) {
  max_requests_ = 1000;
  StartAndConnect();
  adapter_->on_request = [this] { AdapterPublishes("get_sn", 25); };
  for (int i = 0; i < 300; ++i) {
    CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  }
  link_.listener->OnLinkDown("why");
  loop_.Run();
  EXPECT_EQ(agent_->Counters().requests, 300U);
}

TEST_F(AgentTest, AnswersARequestThatTheAdapterThrowsAt) {
  StartAndConnect();
  adapter_->on_request = [] { throw std::runtime_error("no reason"); };
  CloudSends("get_sn", R"({"id":"x","version":"1.0","payload":{}})");
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr(R"("code":"failed")")));
}

TEST_F(AgentTest, TellsWhatTheBusSaidToARequest) {
  options_.requests.diagnose = true;
  StartAndConnect();
  adapter_->on_request = [this] {
    tarvex::BusRequest request;
    request.queue = "SS_BUS_REQUEST";
    agent_->OnBusRequest(request);
  };
  CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr(R"("queue":"SS_BUS_REQUEST")")));
}

TEST_F(AgentTest, TellsWhetherTheDeviceIsThere) {
  StartAndConnect();
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr(R"("device":false)")));
  link_.sent.clear();
  tarvex::BusRequest request;
  request.queue = "BUS_GET_IVS_INFO";
  request.outcome = tarvex::BusOutcome::kAnswered;
  agent_->OnBusRequest(request);
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr(R"("device":true)")));
}

TEST_F(AgentTest, KnowsTheRequestsOfItsAdapterOnly) {
  StartAndConnect();
  CloudSends("gpio_out", R"({"version":"1.0","payload":{}})");
  EXPECT_THAT(calls_, ElementsAre());
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr("unknown request")));
}

TEST_F(AgentTest, CountsRequestsAndThoseTurnedAway) {
  max_requests_ = 0;
  StartAndConnect();
  CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  EXPECT_EQ(agent_->Counters().requests, 1U);
  EXPECT_EQ(agent_->Counters().request_errors, 1U);
}

}  // namespace
}  // namespace agent
