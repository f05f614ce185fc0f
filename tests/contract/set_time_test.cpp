#include "adapter_test.h"

namespace {

class SetTime : public AdapterTest {
 protected:
  void SetUp() override {
    Start();
    Answers("SS_BUS_REQUEST", "{}");
  }
  bool Set(const std::string& body, const std::string& version = "1.0") {
    return CloudSends("set_time", R"({"type":"set_time","body":)" + body + "}", version);
  }
  /// A date whose `key` holds the JSON `value`; all other parts are in range.
  static std::string DateWith(const std::string& key, const std::string& value) {
    Json::Value date =
        Parsed(R"({"year":"2024","month":"6","day":"15","hour":"12","min":"30","sec":"45"})");
    date[key] = Parsed(value);
    return Compact(date);
  }
  static std::string Request(const std::string& datetime) {
    return R"(SS_BUS_REQUEST {"body":{"datetime":")" + datetime +
           R"("},"type":"ss_set_timing"} timeout=5000)";
  }
};

TEST_F(SetTime, PadsTheDateWithBlanks) {
  EXPECT_TRUE(Set(R"({"year":"2024","month":"1","day":"5","hour":"3","min":"4","sec":"5"})"));
  EXPECT_EQ(BusHeard(), Request("2024- 1- 5  3: 4: 5"));
}

TEST_F(SetTime, SendsTwoDigitPartsAsTheyAre) {
  EXPECT_TRUE(Set(R"({"year":"2024","month":"12","day":"31","hour":"23","min":"59","sec":"58"})"));
  EXPECT_EQ(BusHeard(), Request("2024-12-31 23:59:58"));
}

TEST_F(SetTime, IsLoggedWhenDone) {
  Set(DateWith("sec", "\"1\""));
  EXPECT_EQ(BusHeard(), Request("2024- 6-15 12:30: 1"));
  EXPECT_EQ(LoggedBy("DoCmdSetTime", 6, "set_time success."), 1U);
  EXPECT_EQ(LogLines(3).size(), 0U);
}

TEST_F(SetTime, TakesNumbersAsWellAsTexts) {
  EXPECT_TRUE(Set(R"({"year":2024,"month":1,"day":5,"hour":3,"min":4,"sec":5})"));
  EXPECT_EQ(BusHeard(), Request("2024- 1- 5  3: 4: 5"));
}

TEST_F(SetTime, TakesTheEndsOfEachRange) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> ends = {
      {"year", {"1970", "2038"}}, {"month", {"1", "12"}}, {"day", {"1", "31"}},
      {"hour", {"0", "23"}},      {"min", {"0", "59"}},   {"sec", {"0", "61"}}};
  for (const auto& [key, values] : ends) {
    for (const std::string& value : values) {
      EXPECT_TRUE(Set(DateWith(key, "\"" + value + "\""))) << key << " " << value;
      EXPECT_NE(BusHeard(), "nothing");
    }
  }
}

TEST_F(SetTime, RefusesWhatLiesBesideEachRangeWithoutALine) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> beside = {
      {"year", {"1969", "2039", "0"}}, {"month", {"0", "13"}}, {"day", {"0", "32"}},
      {"hour", {"-1", "24"}},          {"min", {"-1", "60"}},  {"sec", {"-1", "62"}}};
  for (const auto& [key, values] : beside) {
    for (const std::string& value : values) {
      ForgetLogs();
      EXPECT_FALSE(Set(DateWith(key, "\"" + value + "\""))) << key << " " << value;
      EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
    }
  }
}

TEST_F(SetTime, RefusesNegativePartsOfEveryKind) {
  for (const char* key : {"year", "month", "day", "hour", "min", "sec"}) {
    EXPECT_FALSE(Set(DateWith(key, "-5"))) << key;
    EXPECT_FALSE(Set(DateWith(key, "\"-2147483648\""))) << key;
  }
}

TEST_F(SetTime, DoesNotCheckTheDayAgainstTheMonth) {
  EXPECT_TRUE(Set(R"({"year":"2023","month":"2","day":"31","hour":"0","min":"0","sec":"61"})"));
  EXPECT_EQ(BusHeard(), Request("2023- 2-31  0: 0:61"));
}

TEST_F(SetTime, ReadsTextThatIsNoNumberAsZero) {
  EXPECT_FALSE(Set(DateWith("year", "\"next\"")));
  EXPECT_TRUE(Set(DateWith("hour", "\"noon\"")));
  EXPECT_EQ(BusHeard(), Request("2024- 6-15  0:30:45"));
}

TEST_F(SetTime, ReadsLeadingDigitsOnly) {
  EXPECT_TRUE(Set(DateWith("hour", "\" 7h\"")));
  EXPECT_EQ(BusHeard(), Request("2024- 6-15  7:30:45"));
}

TEST_F(SetTime, ReadsAYearBeyondThirtyTwoBitsAsALongHoldsIt) {
  // 2^32 + 2024: a long of 64 bits is cut to 2024, one of 32 ends at its limit.
  const bool is_wide = sizeof(long) == 8;
  EXPECT_EQ(Set(DateWith("year", "\"4294969320\"")), is_wide);
  EXPECT_EQ(BusHeard(), is_wide ? Request("2024- 6-15 12:30:45") : "nothing");
  EXPECT_FALSE(Set(DateWith("year", "\"9223372036854777832\"")));  // 2^63 + 2024
}

TEST_F(SetTime, ReadsANullPartAsZero) {
  EXPECT_TRUE(Set(DateWith("min", "null")));
  EXPECT_EQ(BusHeard(), Request("2024- 6-15 12: 0:45"));
  EXPECT_FALSE(Set(DateWith("month", "null")));
}

TEST_F(SetTime, RefusesADateThatLacksAPartWithoutALine) {
  for (const char* key : {"year", "month", "day", "hour", "min", "sec"}) {
    ForgetLogs();
    Json::Value date = Parsed(DateWith("sec", "\"1\""));
    date.removeMember(key);
    EXPECT_FALSE(Set(Compact(date))) << key;
    EXPECT_EQ(LogLines().size(), 1U);
  }
}

TEST_F(SetTime, RefusesARequestWithoutABody) {
  EXPECT_FALSE(CloudSends("set_time", R"({"type":"set_time"})"));
  EXPECT_FALSE(Set("null"));
  EXPECT_FALSE(Set("[]"));
}

TEST_F(SetTime, RefusesAPartThatIsNoScalar) {
  EXPECT_FALSE(Set(DateWith("sec", "[1]")));
  EXPECT_FALSE(Set(DateWith("year", "{}")));
  EXPECT_EQ(LogLines(3).size(), 2U);
}

TEST_F(SetTime, SaysUnderItsOwnNameWhatIsWrongWithThePayload) {
  EXPECT_FALSE(CloudSends("set_time", "5"));
  EXPECT_EQ(LoggedBy("DoCmdSetTime", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("set_time", R"({"body":{}})"));
  EXPECT_EQ(LoggedBy("DoCmdSetTime", 4, "payload parameter is incomplete and type is missing"), 1U);
}

TEST_F(SetTime, RefusesAnotherTypeWithoutALine) {
  const std::string body = DateWith("sec", "\"1\"");
  for (const char* type : {"5", "null", "\"set_tim\"", "\"SET_TIME\"", "[\"set_time\"]"}) {
    ForgetLogs();
    EXPECT_FALSE(
        CloudSends("set_time", std::string(R"({"type":)") + type + R"(,"body":)" + body + "}"));
    EXPECT_EQ(LogLines().size(), 1U) << type;
  }
}

TEST_F(SetTime, SendsNothingUnderAnotherVersion) {
  for (const char* version : {"1.1", "", "1"}) {
    ForgetLogs();
    EXPECT_FALSE(Set(DateWith("sec", "\"1\""), version));
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(LogLines().size(), 1U);
  }
}

TEST_F(SetTime, LogsARequestThatFails) {
  for (const int result : {0, -1}) {
    ForgetLogs();
    Answers("SS_BUS_REQUEST", "{}", result);
    EXPECT_FALSE(Set(DateWith("sec", "\"1\"")));
    BusHeard();
    EXPECT_EQ(LoggedBy("DoCmdSetTime", 3,
                       R"(send dp failed:{"body":{"datetime":"2024- 6-15 12:30: 1"},)"
                       R"("type":"ss_set_timing"} )"),
              1U);
    EXPECT_EQ(LogLines(6).size(), 0U);
  }
}

TEST_F(SetTime, IgnoresTheReply) {
  Answers("SS_BUS_REQUEST", "no json");
  EXPECT_TRUE(Set(DateWith("sec", "\"1\"")));
  BusHeard();
}

TEST_F(SetTime, LeavesTheResponseAsItIs) {
  response_["kept"] = 1;
  Set(DateWith("sec", "\"1\""));
  BusHeard();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class SetTimeWithoutBus : public AdapterTest {};

TEST_F(SetTimeWithoutBus, IsRefused) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(CloudSends("set_time",
                          R"({"type":"set_time","body":{"year":"2024","month":"1","day":"5",)"
                          R"("hour":"3","min":"4","sec":"5"}})"));
}

}  // namespace
