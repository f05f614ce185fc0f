#include "adapter_test.h"

namespace {

class WhiteListOperator : public AdapterTest {
 protected:
  void SetUp() override {
    Start();
    Answers("BUS_WHITE_LIST_INFO", "{}");
  }
  bool Operate(const std::string& body, const std::string& version = "1.0") {
    return CloudSends("white_list_operator",
                      R"({"type":"white_list_operator","body":)" + body + "}", version);
  }
  static std::string Request(const std::string& text) {
    return "BUS_WHITE_LIST_INFO " + text + " timeout=3000";
  }
  static std::string Result(const std::string& operation, int state_code) {
    return R"(white_list_operator 22 {"operator_type":")" + operation + R"(","state_code":)" +
           std::to_string(state_code) + "}";
  }
};

TEST_F(WhiteListOperator, DeletesOnePlate) {
  EXPECT_TRUE(Operate(R"({"operator_type":"delete","plate":"AB123"})"));
  EXPECT_EQ(BusHeard(), Request(R"({"body":{"plates":["AB123"]},"type":"delete_white_list"})"));
  EXPECT_EQ(Published(), Result("delete", 200));
}

TEST_F(WhiteListOperator, DeletesAListOfPlatesAsItIs) {
  for (const char* plates : {R"(["AB123","CD456"])", "[]", "[5,null]"}) {
    EXPECT_TRUE(Operate(std::string(R"({"operator_type":"delete","plate":)") + plates + "}"));
    EXPECT_EQ(BusHeard(), Request(std::string(R"({"body":{"plates":)") + plates +
                                  R"(},"type":"delete_white_list"})"));
    EXPECT_EQ(Published(), Result("delete", 200));
  }
}

TEST_F(WhiteListOperator, DeletesWhateverStandsForOnePlate) {
  for (const char* plate : {"null", "5", R"({"a":1})", "true"}) {
    EXPECT_TRUE(Operate(std::string(R"({"operator_type":"delete","plate":)") + plate + "}"));
    EXPECT_EQ(BusHeard(), Request(std::string(R"({"body":{"plates":[)") + plate +
                                  R"(]},"type":"delete_white_list"})"));
    Published();
  }
}

TEST_F(WhiteListOperator, DeletesWithoutABodyWhereNoPlateIsNamed) {
  EXPECT_TRUE(Operate(R"({"operator_type":"delete","dldb_rec":{}})"));
  EXPECT_EQ(BusHeard(), Request(R"({"type":"delete_white_list"})"));
  EXPECT_EQ(Published(), Result("delete", 200));
}

TEST_F(WhiteListOperator, LogsADeletion) {
  Answers("BUS_WHITE_LIST_INFO", R"({ "done": 1 })");
  Operate(R"({"operator_type":"delete"})");
  BusHeard();
  Published();
  EXPECT_EQ(LogLines(6), (std::vector<std::string>{"DoCmdForWLOperator:delete",
                                                   R"(req_data:{"type":"delete_white_list"})",
                                                   R"(Delete:{ "done": 1 })"}));
  EXPECT_EQ(LoggedBy("DoCmdForWLOperator", 6, "DoCmdForWLOperator:delete"), 1U);
  EXPECT_EQ(LoggedBy("DeleteWlInfo", 6, R"(Delete:{ "done": 1 })"), 1U);
}

TEST_F(WhiteListOperator, CopiesNothingOfTheReply) {
  Answers("BUS_WHITE_LIST_INFO", R"({"state_code":7,"body":{"x":1}})");
  EXPECT_TRUE(Operate(R"({"operator_type":"delete"})"));
  BusHeard();
  EXPECT_EQ(Published(), Result("delete", 200));
}

TEST_F(WhiteListOperator, StoresOneRecord) {
  EXPECT_TRUE(Operate(R"({"operator_type":"update_or_add","dldb_rec":{"plate":"AB123"}})"));
  EXPECT_EQ(BusHeard(), Request(R"({"body":{"white_list_rec":[{"plate":"AB123"}]},)"
                                R"("type":"replace_white_list"})"));
  EXPECT_EQ(Published(), Result("update_or_add", 200));
}

TEST_F(WhiteListOperator, StoresAListOfRecordsAsItIs) {
  for (const char* records : {R"([{"plate":"AB123"},{"plate":"CD456"}])", "[]"}) {
    EXPECT_TRUE(
        Operate(std::string(R"({"operator_type":"update_or_add","dldb_rec":)") + records + "}"));
    EXPECT_EQ(BusHeard(), Request(std::string(R"({"body":{"white_list_rec":)") + records +
                                  R"(},"type":"replace_white_list"})"));
    Published();
  }
}

TEST_F(WhiteListOperator, StoresANullWhereNoRecordIsGiven) {
  EXPECT_TRUE(Operate(R"({"operator_type":"update_or_add"})"));
  EXPECT_EQ(BusHeard(),
            Request(R"({"body":{"white_list_rec":[null]},"type":"replace_white_list"})"));
  EXPECT_EQ(Published(), Result("update_or_add", 200));
}

TEST_F(WhiteListOperator, LogsTheReplyToAStorageButNotItsRequest) {
  Answers("BUS_WHITE_LIST_INFO", R"({ "done": 1 })");
  Operate(R"({"operator_type":"update_or_add"})");
  BusHeard();
  Published();
  EXPECT_EQ(LogLines(6), (std::vector<std::string>{"DoCmdForWLOperator:update_or_add",
                                                   R"(Replace:{ "done": 1 })"}));
  EXPECT_EQ(LoggedBy("ReplaceWlInfo", 6, R"(Replace:{ "done": 1 })"), 1U);
}

TEST_F(WhiteListOperator, PublishesAFailureWhereTheReplyIsEmptyOrNoJson) {
  for (const char* operation : {"delete", "update_or_add"}) {
    for (const char* reply : {"", "no json", "{"}) {
      ForgetLogs();
      Answers("BUS_WHITE_LIST_INFO", reply);
      EXPECT_FALSE(Operate(std::string(R"({"operator_type":")") + operation + "\"}"));
      EXPECT_NE(BusHeard(), "nothing");
      EXPECT_EQ(Published(), Result(operation, 500));
      EXPECT_EQ(LogLines(3).size(), 0U);
    }
  }
}

TEST_F(WhiteListOperator, GoesByTheReplyNotByTheResultOfTheSend) {
  for (const char* operation : {"delete", "update_or_add"}) {
    for (const int result : {0, -1}) {
      Answers("BUS_WHITE_LIST_INFO", "5", result);
      EXPECT_TRUE(Operate(std::string(R"({"operator_type":")") + operation + "\"}"));
      BusHeard();
      EXPECT_EQ(Published(), Result(operation, 200));
    }
  }
}

TEST_F(WhiteListOperator, PublishesAFailureWhereTheRequestCannotBeSerialised) {
  platform().serialising_fails = true;
  for (const char* operation : {"delete", "update_or_add"}) {
    EXPECT_FALSE(Operate(std::string(R"({"operator_type":")") + operation + "\"}"));
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(PublishedHead(), "white_list_operator 22");
    EXPECT_EQ(PublishedPayload()["state_code"], 500);
  }
  EXPECT_EQ(Logged(6, "req_data:"), 0U);
}

TEST_F(WhiteListOperator, ABusThatThrowsFailsAStorageWithAPublication) {
  platform().throw_on_request = "BUS_WHITE_LIST_INFO";
  EXPECT_FALSE(Operate(R"({"operator_type":"update_or_add"})"));
  EXPECT_EQ(LoggedBy("ReplaceWlInfo", 3, "ReplaceWlInfo Failed:thrown by the bus"), 1U);
  EXPECT_EQ(LogLines(3).size(), 1U);
  EXPECT_EQ(Published(), Result("update_or_add", 500));
}

TEST_F(WhiteListOperator, ABusThatThrowsFailsADeletionWithoutOne) {
  platform().throw_on_request = "BUS_WHITE_LIST_INFO";
  EXPECT_FALSE(Operate(R"({"operator_type":"delete"})"));
  EXPECT_EQ(LoggedBy("RequestMessage", 3, "caught: thrown by the bus"), 1U);
  EXPECT_EQ(Published(), "nothing");
}

TEST_F(WhiteListOperator, TakesASelectAndDoesNothing) {
  EXPECT_FALSE(Operate(R"({"operator_type":"select","plate":"AB123"})"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Published(), "nothing");
  EXPECT_EQ(LogLines(6), std::vector<std::string>{"DoCmdForWLOperator:select"});
  EXPECT_EQ(LogLines(3).size(), 0U);
}

TEST_F(WhiteListOperator, LogsAnUnknownOperation) {
  for (const char* operation : {"clear", "", "Delete", "select "}) {
    ForgetLogs();
    EXPECT_FALSE(Operate(std::string(R"({"operator_type":")") + operation + "\"}"));
    EXPECT_EQ(LoggedBy("DoCmdForWLOperator", 3,
                       std::string("operator_type:") + operation + " not support."),
              1U);
    EXPECT_EQ(Published(), "nothing");
  }
}

TEST_F(WhiteListOperator, RefusesARequestWithoutAnOperationWithoutALine) {
  for (const char* body : {"{}", R"({"operator_type":5})", R"({"operator_type":null})",
                           R"({"operator_type":["delete"]})", "null", "[]", "5"}) {
    ForgetLogs();
    EXPECT_FALSE(Operate(body)) << body;
    EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
  }
  EXPECT_FALSE(CloudSends("white_list_operator", R"({"type":"white_list_operator"})"));
}

TEST_F(WhiteListOperator, LogsTheOperationBeforeItRefusesAnotherVersion) {
  EXPECT_FALSE(Operate(R"({"operator_type":"delete"})", "1.1"));
  EXPECT_FALSE(Operate(R"({"operator_type":"clear"})", ""));
  EXPECT_EQ(LogLines(6),
            (std::vector<std::string>{"DoCmdForWLOperator:delete", "DoCmdForWLOperator:clear"}));
  EXPECT_EQ(LogLines(3).size(), 0U);
}

TEST_F(WhiteListOperator, ChecksPayloadAndType) {
  EXPECT_FALSE(CloudSends("white_list_operator", "[]"));
  EXPECT_EQ(LoggedBy("CheckPayloadIsValid", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("white_list_operator", "{}"));
  EXPECT_EQ(
      LoggedBy("CheckPayloadIsValid", 4, "payload parameter is incomplete and type is missing"),
      1U);
  EXPECT_FALSE(CloudSends("white_list_operator",
                          R"({"type":"white_list","body":{"operator_type":"delete"}})"));
  EXPECT_FALSE(
      CloudSends("white_list_operator", R"({"type":5,"body":{"operator_type":"delete"}})"));
}

TEST_F(WhiteListOperator, LeavesTheResponseAsItIs) {
  response_["kept"] = 1;
  for (const char* operation : {"delete", "update_or_add", "select", "clear"}) {
    Operate(std::string(R"({"operator_type":")") + operation + "\"}");
    BusHeard();
    Published();
  }
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class WhiteListOperatorWithoutBus : public AdapterTest {};

TEST_F(WhiteListOperatorWithoutBus, PublishesAFailure) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(CloudSends("white_list_operator",
                          R"({"type":"white_list_operator","body":{"operator_type":"delete"}})"));
  EXPECT_EQ(Published(), R"(white_list_operator 22 {"operator_type":"delete","state_code":500})");
}

}  // namespace
