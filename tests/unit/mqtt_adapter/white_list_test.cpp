// White-list operations called with what a request never hands them.
#include "adapter_fixture.h"

namespace {

class WhiteList : public AdapterFixture {
 protected:
  void SetUp() override { Start(); }
  /// Selects with a result message as the handler builds it.
  int Select(const std::string& body) {
    Json::Value result = Parsed(R"({"state_code":500,"operator_type":"select"})");
    return adapter_.SelectWlInfo(Parsed(body), result);
  }
  const std::string kRequest =
      R"(BUS_WHITE_LIST_INFO {"body":{"plate":"AB123"},"type":"select_white_list"} timeout=2000)";
  const std::string kFailure =
      R"(white_list_operator 22 {"operator_type":"select","state_code":500})";
};

TEST_F(WhiteList, SelectPublishesTheRecordsAndKeepsTheStateCode) {
  Answers("BUS_WHITE_LIST_INFO", R"({"body":{"white_list_rec":[{"plate":"AB123"}]}})");
  EXPECT_EQ(Select(R"({"plate":"AB123"})"), 1);
  EXPECT_EQ(BusHeard(), kRequest);
  EXPECT_EQ(Published(), R"(white_list_operator 22 {"dldb_rec":[{"plate":"AB123"}],)"
                         R"("operator_type":"select","state_code":500})");
}

TEST_F(WhiteList, SelectLogsTheReply) {
  Answers("BUS_WHITE_LIST_INFO", "{ }");
  Select(R"({"plate":"AB123"})");
  EXPECT_EQ(LogLines(), std::vector<std::string>{"mqtt_adapter SelectWlInfo 6 Select:{ }"});
}

TEST_F(WhiteList, SelectPublishesNullWhereTheReplyHasNoRecords) {
  for (const char* reply : {"{}", "[]", "5", R"({"body":{}})", R"({"body":5})"}) {
    Answers("BUS_WHITE_LIST_INFO", reply, -1);
    EXPECT_EQ(Select(R"({"plate":"AB123"})"), 1) << reply;
    EXPECT_EQ(Published(), R"(white_list_operator 22 {"dldb_rec":null,"operator_type":"select",)"
                           R"("state_code":500})");
  }
}

TEST_F(WhiteList, SelectWithoutAPlateAsksNothingAndPublishes) {
  for (const char* body : {"{}", R"({"plate":""})", R"({"plate":5})", R"({"plate":["AB123"]})",
                           R"({"plate":null})", "null", "[]", "5"}) {
    EXPECT_EQ(Select(body), 0) << body;
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(Published(), kFailure);
  }
}

TEST_F(WhiteList, SelectPublishesAFailureWhereTheReplyIsEmptyOrNoJson) {
  for (const char* reply : {"", "no json"}) {
    Answers("BUS_WHITE_LIST_INFO", reply);
    EXPECT_EQ(Select(R"({"plate":"AB123"})"), 0);
    EXPECT_EQ(BusHeard(), kRequest);
    EXPECT_EQ(Published(), kFailure);
  }
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(WhiteList, SelectPublishesWhereTheRequestCannotBeSerialised) {
  fake::ThePlatform().serialising_fails = true;
  EXPECT_EQ(Select(R"({"plate":"AB123"})"), 0);
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Published(), "white_list_operator 22 ");
}

TEST_F(WhiteList, ReplaceOfABodyThatIsNoObjectIsCaughtAndPublished) {
  for (const char* body : {"[]", "5", "\"x\"", "true"}) {
    fake::ThePlatform().logs.clear();
    Json::Value result;
    result["state_code"] = 500;
    EXPECT_EQ(adapter_.ReplaceWlInfo(Parsed(body), result), 0) << body;
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(Published(), R"(white_list_operator 22 {"state_code":500})");
    ASSERT_EQ(LogLines().size(), 1U);
    EXPECT_EQ(LogLines()[0].find("mqtt_adapter ReplaceWlInfo 3 ReplaceWlInfo Failed:"), 0U);
  }
}

TEST_F(WhiteList, DeleteOfABodyThatIsNoObjectNamesNoPlates) {
  Answers("BUS_WHITE_LIST_INFO", "{}");
  for (const char* body : {"null", "[]", "5"}) {
    Json::Value result;
    EXPECT_EQ(adapter_.DeleteWlInfo(Parsed(body), result), 1) << body;
    EXPECT_EQ(BusHeard(), R"(BUS_WHITE_LIST_INFO {"type":"delete_white_list"} timeout=3000)");
    EXPECT_EQ(Published(), R"(white_list_operator 22 {"state_code":200})");
  }
}

TEST_F(WhiteList, SetOfABodyThatIsNoObjectIsRefused) {
  for (const char* body : {"null", "[]", "5", "{}"}) {
    EXPECT_EQ(adapter_.SetWLCheckStatus(Parsed(body)), 0) << body;
  }
  EXPECT_EQ(BusHeard(), "nothing");
}

}  // namespace
