#include "adapter_test.h"

namespace {

class BindDeviceList : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Ask(const std::string& version = "1.0") {
    return CloudSends("bind_device_list", R"({"type":"bind_device_list"})", version);
  }
  const std::string kRequest = R"(user_get_mate_info {"type":"user_get_mate_info"} timeout=3000)";
};

TEST_F(BindDeviceList, PublishesTheBodyOfTheReply) {
  Answers("user_get_mate_info", R"({"body":[{"sn":"M1"}],"other":1})");
  EXPECT_TRUE(Ask());
  EXPECT_EQ(BusHeard(), kRequest);
  EXPECT_EQ(Published(), R"(bind_device_list 18 {"body":[{"sn":"M1"}],"state_code":200})");
}

TEST_F(BindDeviceList, LogsThePublication) {
  Answers("user_get_mate_info", R"({"body":5})");
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(LogLines(6),
            std::vector<std::string>{"bind_device_list:{\"body\":5,\"state_code\":200}\n"});
  EXPECT_EQ(
      LoggedBy("DoCmdBindDeviceList", 6, "bind_device_list:{\"body\":5,\"state_code\":200}\n"), 1U);
}

TEST_F(BindDeviceList, SendsNoBodyWhateverTheRequestHas) {
  Answers("user_get_mate_info", "{}");
  EXPECT_TRUE(CloudSends("bind_device_list", R"({"type":"bind_device_list","body":{"sn":"x"}})"));
  EXPECT_EQ(BusHeard(), kRequest);
  Published();
}

TEST_F(BindDeviceList, PublishesANullBodyForAReplyWithoutOne) {
  for (const char* reply :
       {"", "no json", R"({"body":5)", R"({"body":5} x)", "{}", "[]", "5", "null"}) {
    Answers("user_get_mate_info", reply);
    EXPECT_TRUE(Ask()) << reply;
    BusHeard();
    EXPECT_EQ(Published(), R"(bind_device_list 18 {"body":null,"state_code":200})") << reply;
  }
}

TEST_F(BindDeviceList, ARequestThatFailsIsLoggedInRedAndPublishesNothing) {
  for (const int result : {0, -1}) {
    ForgetLogs();
    Answers("user_get_mate_info", R"({"body":5})", result);
    EXPECT_FALSE(Ask());
    EXPECT_EQ(BusHeard(), kRequest);
    EXPECT_EQ(LoggedBy("DoCmdBindDeviceList", 6,
                       "\033[31m send dp failed:{\"type\":\"user_get_mate_info\"} \033[0m \n"),
              1U);
    EXPECT_EQ(LogLines(3).size(), 0U);
  }
}

TEST_F(BindDeviceList, SaysUnderItsOwnNameWhatIsWrongWithThePayload) {
  EXPECT_FALSE(CloudSends("bind_device_list", "[]"));
  EXPECT_EQ(LoggedBy("DoCmdBindDeviceList", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("bind_device_list", "{}"));
  EXPECT_EQ(
      LoggedBy("DoCmdBindDeviceList", 4, "payload parameter is incomplete and type is missing"),
      1U);
}

TEST_F(BindDeviceList, RefusesAnotherTypeOrVersionWithoutALine) {
  EXPECT_FALSE(CloudSends("bind_device_list", R"({"type":"bind_device"})"));
  EXPECT_FALSE(CloudSends("bind_device_list", R"({"type":5})"));
  EXPECT_FALSE(Ask("1.1"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(LogLines().size(), 3U);  // the requests' own lines
}

TEST_F(BindDeviceList, LeavesTheResponseAsItIs) {
  Answers("user_get_mate_info", "{}");
  response_["kept"] = 1;
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class BindDeviceListWithoutBus : public AdapterTest {};

TEST_F(BindDeviceListWithoutBus, IsRefused) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(CloudSends("bind_device_list", R"({"type":"bind_device_list"})"));
}

}  // namespace
