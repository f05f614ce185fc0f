#include "adapter_test.h"

namespace {

class AgentTalkbackPort : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Ask(const std::string& body = R"({"sn":"M1","window_size":8})",
           const std::string& version = "1.0") {
    return CloudSends("agent_talkback_port",
                      R"({"type":"agent_talkback_port","body":)" + body + "}", version);
  }
  static std::string Request(const std::string& sn, const std::string& window_size) {
    return R"(user_request_talkback {"body":{"sn":")" + sn + R"(","window_size":)" + window_size +
           R"(},"type":"user_request_talkback"} timeout=3000)";
  }
};

TEST_F(AgentTalkbackPort, PublishesTheBodyOfTheReply) {
  Answers("user_request_talkback", R"({"body":{"port":9000},"other":1})");
  EXPECT_TRUE(Ask());
  EXPECT_EQ(BusHeard(), Request("M1", "8"));
  EXPECT_EQ(Published(), R"(agent_talkback_port 20 {"body":{"port":9000},"state_code":200})");
}

TEST_F(AgentTalkbackPort, LogsThePublication) {
  Answers("user_request_talkback", R"({"body":5})");
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(LogLines(6),
            std::vector<std::string>{"agent_talkback_port:{\"body\":5,\"state_code\":200}\n"});
  EXPECT_EQ(LoggedBy("DoCmdAgentTalkbackPort", 6,
                     "agent_talkback_port:{\"body\":5,\"state_code\":200}\n"),
            1U);
}

TEST_F(AgentTalkbackPort, SendsAStringAndAnInteger) {
  Answers("user_request_talkback", "{}");
  EXPECT_TRUE(Ask(R"({"sn":17,"window_size":-2.5,"other":1})"));
  EXPECT_EQ(BusHeard(), Request("17", "-2"));
  Published();
}

TEST_F(AgentTalkbackPort, SendsNothingUnlessBothAreGiven) {
  for (const char* body :
       {"{}", R"({"sn":"M1"})", R"({"window_size":8})", R"({"sn":null,"window_size":8})",
        R"({"sn":"M1","window_size":null})", "null", "[]", "5"}) {
    ForgetLogs();
    EXPECT_FALSE(Ask(body)) << body;
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
  }
  EXPECT_FALSE(CloudSends("agent_talkback_port", R"({"type":"agent_talkback_port"})"));
}

TEST_F(AgentTalkbackPort, RefusesMembersOfTheWrongKind) {
  EXPECT_FALSE(Ask(R"({"sn":{},"window_size":8})"));
  EXPECT_FALSE(Ask(R"({"sn":"M1","window_size":"8"})"));
  EXPECT_FALSE(Ask(R"({"sn":"M1","window_size":4294967295})"));
  EXPECT_EQ(LogLines(3).size(), 3U);
}

TEST_F(AgentTalkbackPort, PublishesANullBodyForAReplyWithoutOne) {
  for (const char* reply :
       {"", "no json", R"({"body":5)", R"({"body":5} x)", "{}", "[]", "5", "null"}) {
    Answers("user_request_talkback", reply);
    EXPECT_TRUE(Ask()) << reply;
    BusHeard();
    EXPECT_EQ(Published(), R"(agent_talkback_port 20 {"body":null,"state_code":200})") << reply;
  }
}

TEST_F(AgentTalkbackPort, ARequestThatFailsIsLoggedInRedAndPublishesNothing) {
  for (const int result : {0, -1}) {
    ForgetLogs();
    Answers("user_request_talkback", R"({"body":5})", result);
    EXPECT_FALSE(Ask());
    BusHeard();
    EXPECT_EQ(LoggedBy("DoCmdAgentTalkbackPort", 6,
                       "\033[31m send dp failed:{\"body\":{\"sn\":\"M1\",\"window_size\":8},"
                       "\"type\":\"user_request_talkback\"} \033[0m \n"),
              1U);
  }
}

TEST_F(AgentTalkbackPort, SaysUnderItsOwnNameWhatIsWrongWithThePayload) {
  EXPECT_FALSE(CloudSends("agent_talkback_port", "[]"));
  EXPECT_EQ(LoggedBy("DoCmdAgentTalkbackPort", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("agent_talkback_port", "{}"));
  EXPECT_EQ(
      LoggedBy("DoCmdAgentTalkbackPort", 4, "payload parameter is incomplete and type is missing"),
      1U);
}

TEST_F(AgentTalkbackPort, RefusesAnotherTypeOrVersionWithoutALine) {
  EXPECT_FALSE(CloudSends("agent_talkback_port",
                          R"({"type":"agent_talkback","body":{"sn":"M1","window_size":8}})"));
  EXPECT_FALSE(CloudSends("agent_talkback_port", R"({"type":5})"));
  EXPECT_FALSE(Ask(R"({"sn":"M1","window_size":8})", "1.1"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(LogLines().size(), 3U);
}

TEST_F(AgentTalkbackPort, LeavesTheResponseAsItIs) {
  Answers("user_request_talkback", "{}");
  response_["kept"] = 1;
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

}  // namespace
