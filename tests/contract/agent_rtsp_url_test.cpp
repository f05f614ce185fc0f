#include "adapter_test.h"

namespace {

class AgentRtspUrl : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Ask(const std::string& body = R"({"sn":"M1"})", const std::string& version = "1.0") {
    return CloudSends("agent_rtsp_url", R"({"type":"agent_rtsp_url","body":)" + body + "}",
                      version);
  }
  static std::string Request(const std::string& sn) {
    return R"(user_get_rtsp_info {"body":{"sn":")" + sn +
           R"("},"type":"user_get_rtsp_info"} timeout=3000)";
  }
};

TEST_F(AgentRtspUrl, PublishesTheBodyOfTheReply) {
  Answers("user_get_rtsp_info", R"({"body":{"url":"rtsp://a/b"},"other":1})");
  EXPECT_TRUE(Ask());
  EXPECT_EQ(BusHeard(), Request("M1"));
  EXPECT_EQ(Published(), R"(agent_rtsp_url 19 {"body":{"url":"rtsp://a/b"},"state_code":200})");
}

TEST_F(AgentRtspUrl, LogsThePublication) {
  Answers("user_get_rtsp_info", R"({"body":5})");
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(LogLines(6),
            std::vector<std::string>{"agent_rtsp_url:{\"body\":5,\"state_code\":200}\n"});
  EXPECT_EQ(LoggedBy("DoCmdAgentRtspUrl", 6, "agent_rtsp_url:{\"body\":5,\"state_code\":200}\n"),
            1U);
}

TEST_F(AgentRtspUrl, SendsTheSerialNumberAsAString) {
  Answers("user_get_rtsp_info", "{}");
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"\"\"", ""}, {"17", "17"}, {"true", "true"}};
  for (const auto& [given, sent] : rows) {
    EXPECT_TRUE(Ask(R"({"sn":)" + given + R"(,"other":1})"));
    EXPECT_EQ(BusHeard(), Request(sent));
    Published();
  }
}

TEST_F(AgentRtspUrl, SendsNothingWithoutASerialNumber) {
  for (const char* body : {"{}", R"({"sn":null})", "null", "[]", "5", R"("M1")"}) {
    ForgetLogs();
    EXPECT_FALSE(Ask(body)) << body;
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
  }
  EXPECT_FALSE(CloudSends("agent_rtsp_url", R"({"type":"agent_rtsp_url"})"));
}

TEST_F(AgentRtspUrl, RefusesASerialNumberThatIsNoScalar) {
  EXPECT_FALSE(Ask(R"({"sn":{}})"));
  EXPECT_FALSE(Ask(R"({"sn":["M1"]})"));
  EXPECT_EQ(LogLines(3).size(), 2U);
}

TEST_F(AgentRtspUrl, PublishesANullBodyForAReplyWithoutOne) {
  for (const char* reply :
       {"", "no json", R"({"body":5)", R"({"body":5} x)", "{}", "[]", "5", "null"}) {
    Answers("user_get_rtsp_info", reply);
    EXPECT_TRUE(Ask()) << reply;
    BusHeard();
    EXPECT_EQ(Published(), R"(agent_rtsp_url 19 {"body":null,"state_code":200})") << reply;
  }
}

TEST_F(AgentRtspUrl, ARequestThatFailsIsLoggedInRedAndPublishesNothing) {
  for (const int result : {0, -1}) {
    ForgetLogs();
    Answers("user_get_rtsp_info", R"({"body":5})", result);
    EXPECT_FALSE(Ask());
    BusHeard();
    EXPECT_EQ(LoggedBy("DoCmdAgentRtspUrl", 6,
                       "\033[31m send dp failed:{\"body\":{\"sn\":\"M1\"},"
                       "\"type\":\"user_get_rtsp_info\"} \033[0m \n"),
              1U);
  }
}

TEST_F(AgentRtspUrl, SaysUnderItsOwnNameWhatIsWrongWithThePayload) {
  EXPECT_FALSE(CloudSends("agent_rtsp_url", "[]"));
  EXPECT_EQ(LoggedBy("DoCmdAgentRtspUrl", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("agent_rtsp_url", "{}"));
  EXPECT_EQ(LoggedBy("DoCmdAgentRtspUrl", 4, "payload parameter is incomplete and type is missing"),
            1U);
}

TEST_F(AgentRtspUrl, RefusesAnotherTypeOrVersionWithoutALine) {
  EXPECT_FALSE(CloudSends("agent_rtsp_url", R"({"type":"agent_rtsp","body":{"sn":"M1"}})"));
  EXPECT_FALSE(CloudSends("agent_rtsp_url", R"({"type":5,"body":{"sn":"M1"}})"));
  EXPECT_FALSE(Ask(R"({"sn":"M1"})", "1.1"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(LogLines().size(), 3U);
}

TEST_F(AgentRtspUrl, LeavesTheResponseAsItIs) {
  Answers("user_get_rtsp_info", "{}");
  response_["kept"] = 1;
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

}  // namespace
