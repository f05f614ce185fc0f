#include "adapter_test.h"

namespace {

class LanectrlResultCfg : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Configure(const std::string& body = R"([{"enable":1},null,5])",
                 const std::string& version = "1.0") {
    return CloudSends("lanectrl_result_cfg",
                      R"({"type":"lanectrl_result_cfg","body":)" + body + "}", version);
  }
  static std::string Request(const std::string& body) {
    return R"(stay_event_enable {"body":)" + body + R"(,"type":"stay_event_enable"} timeout=5000)";
  }
};

TEST_F(LanectrlResultCfg, PassesTheListOnWhole) {
  Answers("stay_event_enable", "");
  EXPECT_TRUE(Configure());
  EXPECT_EQ(BusHeard(), Request(R"([{"enable":1},null,5])"));
  EXPECT_EQ(Published(), "nothing");
  EXPECT_EQ(LogLines(6), std::vector<std::string>{"stay_event_enable success."});
  EXPECT_EQ(LoggedBy("DoCmdAgentLanectrlResultCfg", 6, "stay_event_enable success."), 1U);
}

TEST_F(LanectrlResultCfg, TakesAnEmptyListAndReadsNoReply) {
  Answers("stay_event_enable", "no json");
  EXPECT_TRUE(Configure("[]"));
  EXPECT_EQ(BusHeard(), Request("[]"));
}

TEST_F(LanectrlResultCfg, SendsNothingWithoutAList) {
  for (const char* body : {"{}", "null", "5", "\"[]\"", "true"}) {
    ForgetLogs();
    EXPECT_FALSE(Configure(body)) << body;
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
  }
  EXPECT_FALSE(CloudSends("lanectrl_result_cfg", R"({"type":"lanectrl_result_cfg"})"));
}

TEST_F(LanectrlResultCfg, ARequestThatFailsIsLoggedInRed) {
  for (const int result : {0, -1}) {
    ForgetLogs();
    Answers("stay_event_enable", "{}", result);
    EXPECT_FALSE(Configure("[]"));
    BusHeard();
    EXPECT_EQ(LogLines(6), std::vector<std::string>{"\033[31m send dp failed:{\"body\":[],"
                                                    "\"type\":\"stay_event_enable\"} \033[0m \n"});
    EXPECT_EQ(LogLines(3).size(), 0U);
  }
}

TEST_F(LanectrlResultCfg, SaysUnderItsOwnNameWhatIsWrongWithThePayload) {
  EXPECT_FALSE(CloudSends("lanectrl_result_cfg", "[]"));
  EXPECT_EQ(LoggedBy("DoCmdAgentLanectrlResultCfg", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("lanectrl_result_cfg", R"({"body":[]})"));
  EXPECT_EQ(LoggedBy("DoCmdAgentLanectrlResultCfg", 4,
                     "payload parameter is incomplete and type is missing"),
            1U);
}

TEST_F(LanectrlResultCfg, RefusesAnotherTypeOrVersionWithoutALine) {
  EXPECT_FALSE(CloudSends("lanectrl_result_cfg", R"({"type":"lanectrl_result","body":[]})"));
  EXPECT_FALSE(CloudSends("lanectrl_result_cfg", R"({"type":5,"body":[]})"));
  EXPECT_FALSE(Configure("[]", "1.1"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(LogLines().size(), 3U);
}

TEST_F(LanectrlResultCfg, LeavesTheResponseAsItIs) {
  Answers("stay_event_enable", "{}");
  response_["kept"] = 1;
  Configure();
  BusHeard();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

}  // namespace
