// What every request has in common: the log line, exact names, and payloads of any
// shape.
#include "adapter_test.h"

namespace {

class Dispatch : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
};

TEST_F(Dispatch, LogsNameAndVersionOfEveryRequest) {
  CloudSends("unheard_of", "{}", "2.5");
  EXPECT_EQ(LoggedBy("RequestMessage", 7, "RequestMessage name=unheard_of version=2.5 "), 1U);
}

TEST_F(Dispatch, RefusesAnUnknownNameWithoutAnotherLine) {
  response_["kept"] = 1;
  EXPECT_FALSE(CloudSends("unheard_of", R"({"type":"unheard_of"})"));
  EXPECT_EQ(LogLines().size(), 1U);
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

TEST_F(Dispatch, MatchesNamesByCase) {
  EXPECT_FALSE(CloudSends("Get_Sn", R"({"type":"Get_Sn"})"));
  EXPECT_FALSE(CloudSends("get_sn ", R"({"type":"get_sn"})"));
  EXPECT_FALSE(CloudSends("", "{}"));
}

TEST_F(Dispatch, RefusesAPayloadThatIsNoObject) {
  for (const char* payload : {"null", "[]", "5", "1.5", "true", "\"get_sn\"", "[{\"type\":1}]"}) {
    ForgetLogs();
    EXPECT_FALSE(CloudSends("get_sn", payload)) << payload;
    EXPECT_EQ(LogLines(4), std::vector<std::string>{"invalid payload, not json object"});
    EXPECT_EQ(LoggedBy("CheckPayloadIsValid", 4, "invalid payload, not json object"), 1U);
  }
}

TEST_F(Dispatch, RefusesAPayloadWithoutAType) {
  EXPECT_FALSE(CloudSends("get_sn", R"({"body":{}})"));
  EXPECT_EQ(LogLines(4),
            std::vector<std::string>{"payload parameter is incomplete and type is missing"});
}

TEST_F(Dispatch, RefusesATypeThatIsNoStringWithoutALine) {
  EXPECT_FALSE(CloudSends("get_sn", R"({"type":5})"));
  EXPECT_FALSE(CloudSends("get_sn", R"({"type":null})"));
  EXPECT_EQ(LogLines(4).size(), 0U);
}

TEST_F(Dispatch, RefusesAnotherTypeWithoutALine) {
  EXPECT_FALSE(CloudSends("get_sn", R"({"type":"get_sn "})"));
  EXPECT_EQ(LogLines().size(), 1U);
}

TEST_F(Dispatch, RefusesAnyVersionButOnePointZero) {
  for (const char* version : {"1.1", "", "1", "1.0 ", "01.0"}) {
    EXPECT_FALSE(CloudSends("get_sn", R"({"type":"get_sn"})", version)) << version;
  }
  EXPECT_EQ(Published(), "nothing");
}

}  // namespace
