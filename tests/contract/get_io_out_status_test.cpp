#include "adapter_test.h"

namespace {

class GetIoOutStatus : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Ask(const std::string& body = R"({"gpio":2})", const std::string& version = "1.0") {
    return CloudSends("get_io_out_status", R"({"type":"get_io_out_status","body":)" + body + "}",
                      version);
  }
  const std::string kRequest =
      R"(EVS_BUS_REQUEST {"body":{"source":2},"type":"evs_get_gpioout"} timeout=3000)";
};

TEST_F(GetIoOutStatus, PublishesWhatTheServiceSays) {
  Answers("EVS_BUS_REQUEST", R"({"body":{"gpio_out_status":1}})");
  EXPECT_TRUE(Ask());
  EXPECT_EQ(BusHeard(), kRequest);
  EXPECT_EQ(Published(), R"(get_io_out_status 27 {"gpio":2,"value":1})");
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

TEST_F(GetIoOutStatus, CopiesTheStatusWhateverItIs) {
  for (const char* status : {"\"on\"", "null", "[1,2]", R"({"a":1})", "1.5", "true"}) {
    Answers("EVS_BUS_REQUEST", std::string(R"({"body":{"gpio_out_status":)") + status + "}}");
    EXPECT_TRUE(Ask());
    EXPECT_EQ(BusHeard(), kRequest);
    EXPECT_EQ(Published(),
              std::string(R"(get_io_out_status 27 {"gpio":2,"value":)") + status + "}");
  }
}

TEST_F(GetIoOutStatus, PublishesNullWhereTheReplyHasNoStatus) {
  for (const char* reply : {"{}", R"({"body":{}})", R"({"body":[]})", "[]", "5", "null"}) {
    Answers("EVS_BUS_REQUEST", reply);
    EXPECT_TRUE(Ask()) << reply;
    BusHeard();
    EXPECT_EQ(Published(), R"(get_io_out_status 27 {"gpio":2,"value":null})");
  }
}

TEST_F(GetIoOutStatus, PassesAnyIntegerOn) {
  Answers("EVS_BUS_REQUEST", R"({"body":{"gpio_out_status":0}})");
  EXPECT_TRUE(Ask(R"({"gpio":-9})"));
  EXPECT_EQ(BusHeard(),
            R"(EVS_BUS_REQUEST {"body":{"source":-9},"type":"evs_get_gpioout"} timeout=3000)");
  EXPECT_EQ(Published(), R"(get_io_out_status 27 {"gpio":-9,"value":0})");
}

TEST_F(GetIoOutStatus, GoesByTheReplyNotByTheResultOfTheSend) {
  for (const int result : {0, -1}) {
    Answers("EVS_BUS_REQUEST", R"({"body":{"gpio_out_status":1}})", result);
    EXPECT_TRUE(Ask());
    BusHeard();
    EXPECT_EQ(Published(), R"(get_io_out_status 27 {"gpio":2,"value":1})");
  }
}

TEST_F(GetIoOutStatus, RefusesAReplyThatIsEmptyOrNoJsonWithoutALine) {
  for (const char* reply : {"", "no json", "{", R"({"body":)"}) {
    ForgetLogs();
    Answers("EVS_BUS_REQUEST", reply);
    EXPECT_FALSE(Ask()) << reply;
    EXPECT_EQ(BusHeard(), kRequest);
    EXPECT_EQ(LogLines().size(), 1U);
  }
}

TEST_F(GetIoOutStatus, SendsNothingUnlessAnIntegerIsAskedFor) {
  for (const char* body :
       {"{}", "null", "[]", "5", R"({"gpio":"2"})", R"({"gpio":null})", R"({"gpio":1.5})",
        R"({"gpio":[2]})", R"({"gpio":true})", R"({"gpio":4294967295})"}) {
    ForgetLogs();
    EXPECT_FALSE(Ask(body)) << body;
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(LogLines().size(), 1U);
  }
  EXPECT_FALSE(CloudSends("get_io_out_status", R"({"type":"get_io_out_status"})"));
}

TEST_F(GetIoOutStatus, ChecksPayloadTypeAndVersion) {
  EXPECT_FALSE(CloudSends("get_io_out_status", "[]"));
  EXPECT_EQ(LoggedBy("CheckPayloadIsValid", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("get_io_out_status", R"({"body":{"gpio":2}})"));
  EXPECT_EQ(
      LoggedBy("CheckPayloadIsValid", 4, "payload parameter is incomplete and type is missing"),
      1U);
  EXPECT_FALSE(CloudSends("get_io_out_status", R"({"type":"get_io_out","body":{"gpio":2}})"));
  EXPECT_FALSE(Ask(R"({"gpio":2})", "1.1"));
}

TEST_F(GetIoOutStatus, LeavesTheResponseAsItIs) {
  Answers("EVS_BUS_REQUEST", R"({"body":{"gpio_out_status":1}})");
  response_["kept"] = 1;
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

TEST_F(GetIoOutStatus, AsksNothingWhenItCannotBeSerialised) {
  platform().serialising_fails = true;
  EXPECT_FALSE(Ask());
  EXPECT_EQ(BusHeard(), "nothing");
}

class GetIoOutStatusWithoutBus : public AdapterTest {};

TEST_F(GetIoOutStatusWithoutBus, IsRefused) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(
      CloudSends("get_io_out_status", R"({"type":"get_io_out_status","body":{"gpio":2}})"));
}

}  // namespace
