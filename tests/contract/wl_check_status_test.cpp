#include "adapter_test.h"

namespace {

class WlCheckStatus : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Command(const std::string& body, const std::string& version = "1.0") {
    return CloudSends("wl_check_status", R"({"type":"wl_check_status","body":)" + body + "}",
                      version);
  }
  static std::string SetRequest(int value) {
    return R"(BUS_WHITE_LIST_INFO {"body":{"filter_enable":)" + std::to_string(value) +
           R"(},"type":"set_wl_check_status"} timeout=3000)";
  }
  const std::string kGet = R"(BUS_WHITE_LIST_INFO {"type":"get_wl_check_status"} timeout=3000)";
};

TEST_F(WlCheckStatus, GetPublishesTheReplyAsItIs) {
  Answers("BUS_WHITE_LIST_INFO", R"({"type":"x","body":{"filter_enable":1},"more":[2]})");
  EXPECT_TRUE(Command(R"({"cmd":"get"})"));
  EXPECT_EQ(BusHeard(), kGet);
  EXPECT_EQ(Published(),
            R"(wl_check_status 24 {"body":{"filter_enable":1},"more":[2],"type":"x"})");
}

TEST_F(WlCheckStatus, GetPublishesAnyJson) {
  for (const char* reply : {"null", "5", "[]", "\"x\"", "{}"}) {
    Answers("BUS_WHITE_LIST_INFO", reply);
    EXPECT_TRUE(Command(R"({"cmd":"get"})"));
    BusHeard();
    EXPECT_EQ(Published(), std::string("wl_check_status 24 ") + reply);
  }
}

TEST_F(WlCheckStatus, GetPublishesNothingWhereTheReplyIsEmptyOrNoJson) {
  for (const char* reply : {"", "no json", "{"}) {
    ForgetLogs();
    Answers("BUS_WHITE_LIST_INFO", reply);
    EXPECT_FALSE(Command(R"({"cmd":"get"})"));
    EXPECT_EQ(BusHeard(), kGet);
    EXPECT_EQ(LogLines(3).size(), 0U);
  }
}

TEST_F(WlCheckStatus, SetSendsTheValueThenPublishesTheNewStatus) {
  for (const int value : {0, 1, 2}) {
    AnswersNext("BUS_WHITE_LIST_INFO", R"({"ok":1})");
    AnswersNext("BUS_WHITE_LIST_INFO", R"({"body":{"filter_enable":7}})");
    EXPECT_TRUE(Command(R"({"cmd":"set","filter_enable":)" + std::to_string(value) + "}"));
    EXPECT_EQ(BusHeard(), SetRequest(value));
    EXPECT_EQ(BusHeard(), kGet);
    EXPECT_EQ(Published(), R"(wl_check_status 24 {"body":{"filter_enable":7}})");
  }
}

TEST_F(WlCheckStatus, SetRefusesAnyOtherValue) {
  for (const char* value : {"3", "-1", "\"1\"", "null", "1.5", "[1]", "{}", "true", "4294967297"}) {
    ForgetLogs();
    EXPECT_FALSE(Command(std::string(R"({"cmd":"set","filter_enable":)") + value + "}")) << value;
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(LoggedBy("SetWLCheckStatus", 3, "SetWLCheckStatus failed, filter_enable error."), 1U);
  }
}

TEST_F(WlCheckStatus, SetRefusesAMissingValue) {
  EXPECT_FALSE(Command(R"({"cmd":"set"})"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(LogLines(3), std::vector<std::string>{"SetWLCheckStatus failed, filter_enable error."});
}

TEST_F(WlCheckStatus, SetEndsWhereItsReplyIsEmptyOrNoJson) {
  for (const char* reply : {"", "no json"}) {
    ForgetLogs();
    Answers("BUS_WHITE_LIST_INFO", reply);
    EXPECT_FALSE(Command(R"({"cmd":"set","filter_enable":1})"));
    EXPECT_EQ(BusHeard(), SetRequest(1));
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(LogLines(3).size(), 0U);
  }
}

TEST_F(WlCheckStatus, SetFailsWhereTheNewStatusIsNotToBeHad) {
  AnswersNext("BUS_WHITE_LIST_INFO", "{}");
  EXPECT_FALSE(Command(R"({"cmd":"set","filter_enable":1})"));
  EXPECT_EQ(BusHeard(), SetRequest(1));
  EXPECT_EQ(BusHeard(), kGet);
  EXPECT_EQ(Published(), "nothing");
}

TEST_F(WlCheckStatus, SetGoesByTheRepliesWhateverTheyAre) {
  Answers("BUS_WHITE_LIST_INFO", "[500]", -1);
  EXPECT_TRUE(Command(R"({"cmd":"set","filter_enable":1})"));
  BusHeard();
  BusHeard();
  EXPECT_EQ(Published(), "wl_check_status 24 [500]");
}

TEST_F(WlCheckStatus, SendsNothingThatCannotBeSerialised) {
  platform().serialising_fails = true;
  EXPECT_FALSE(Command(R"({"cmd":"get"})"));
  EXPECT_FALSE(Command(R"({"cmd":"set","filter_enable":1})"));
  EXPECT_EQ(BusHeard(), "nothing");
}

TEST_F(WlCheckStatus, LogsTheCommand) {
  Command(R"({"cmd":"get"})");
  BusHeard();
  EXPECT_EQ(LogLines(6), std::vector<std::string>{"DoCmdWLCheckStatus, cmd:get"});
  EXPECT_EQ(LoggedBy("DoCmdWLCheckStatus", 6, "DoCmdWLCheckStatus, cmd:get"), 1U);
}

TEST_F(WlCheckStatus, LogsAnUnknownCommand) {
  for (const char* command : {"clear", "", "GET"}) {
    EXPECT_FALSE(Command(std::string(R"({"cmd":")") + command + "\"}"));
    EXPECT_EQ(LoggedBy("DoCmdWLCheckStatus", 3, std::string("cmd:") + command + " not support."),
              1U);
  }
}

TEST_F(WlCheckStatus, RefusesARequestWithoutACommandWithoutALine) {
  for (const char* body :
       {"{}", R"({"cmd":5})", R"({"cmd":null})", R"({"cmd":["get"]})", "null", "[]", "5"}) {
    ForgetLogs();
    EXPECT_FALSE(Command(body)) << body;
    EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
  }
  EXPECT_FALSE(CloudSends("wl_check_status", R"({"type":"wl_check_status"})"));
}

TEST_F(WlCheckStatus, LogsTheCommandBeforeItRefusesAnotherVersion) {
  EXPECT_FALSE(Command(R"({"cmd":"get"})", "1.1"));
  EXPECT_FALSE(Command(R"({"cmd":"clear"})", ""));
  EXPECT_EQ(LogLines(6), (std::vector<std::string>{"DoCmdWLCheckStatus, cmd:get",
                                                   "DoCmdWLCheckStatus, cmd:clear"}));
  EXPECT_EQ(LogLines(3).size(), 0U);
  EXPECT_EQ(BusHeard(), "nothing");
}

TEST_F(WlCheckStatus, ChecksPayloadAndType) {
  EXPECT_FALSE(CloudSends("wl_check_status", "[]"));
  EXPECT_EQ(LoggedBy("CheckPayloadIsValid", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("wl_check_status", "{}"));
  EXPECT_EQ(
      LoggedBy("CheckPayloadIsValid", 4, "payload parameter is incomplete and type is missing"),
      1U);
  EXPECT_FALSE(CloudSends("wl_check_status", R"({"type":"wl_check","body":{"cmd":"get"}})"));
  EXPECT_FALSE(CloudSends("wl_check_status", R"({"type":5,"body":{"cmd":"get"}})"));
}

TEST_F(WlCheckStatus, LeavesTheResponseAsItIs) {
  Answers("BUS_WHITE_LIST_INFO", "{}");
  response_["kept"] = 1;
  Command(R"({"cmd":"get"})");
  BusHeard();
  Published();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class WlCheckStatusWithoutBus : public AdapterTest {};

TEST_F(WlCheckStatusWithoutBus, IsRefused) {
  platform().has_bus = false;
  Start();
  for (const char* body : {R"({"cmd":"get"})", R"({"cmd":"set","filter_enable":1})"}) {
    EXPECT_FALSE(CloudSends("wl_check_status",
                            std::string(R"({"type":"wl_check_status","body":)") + body + "}"));
  }
}

}  // namespace
