#include "adapter_test.h"

namespace {

class GetLastResult : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Ask() { return CloudSends("get_last_result", R"({"type":"get_last_result"})"); }
  Json::Value PlateResult() {
    EXPECT_EQ(PublishedHead(), "get_last_result 26");
    return PublishedPayload()["AlarmInfoPlate"]["result"]["PlateResult"];
  }
  const std::string kRequest = R"(BUS_GET_IVS_INFO {"type":"get_last_ivs"} timeout=3000)";
};

TEST_F(GetLastResult, PublishesTheRecordThatTheServiceHolds) {
  Answers("BUS_GET_IVS_INFO", RecordBytes().Text(0, "AB12CD").PlateId(17).Word(32, 88).str());
  EXPECT_TRUE(Ask());
  EXPECT_EQ(BusHeard(), kRequest);
  const Json::Value plate = PlateResult();
  EXPECT_EQ(plate["license"], "QUIxMkNE");
  EXPECT_EQ(plate["plateid"].asUInt(), 17U);
  EXPECT_EQ(plate["isoffline"].asInt(), 0);
  EXPECT_EQ(LogLines(7).size(), 1U);  // the request's line; the payload is not logged
}

TEST_F(GetLastResult, ReturnsFalseOnAnEmptyReply) {
  ForgetLogs();
  EXPECT_FALSE(Ask());
  EXPECT_EQ(BusHeard(), kRequest);
  EXPECT_EQ(LogLines().size(), 1U);
}

TEST_F(GetLastResult, GoesByTheReplyNotByTheResultOfTheSend) {
  Answers("BUS_GET_IVS_INFO", RecordBytes().PlateId(2).str(), 0);
  EXPECT_TRUE(Ask());
  BusHeard();
  EXPECT_EQ(PlateResult()["plateid"].asUInt(), 2U);
}

TEST_F(GetLastResult, FillsAShortReplyWithZeros) {
  Answers("BUS_GET_IVS_INFO", "AB12");
  EXPECT_TRUE(Ask());
  BusHeard();
  const Json::Value plate = PlateResult();
  EXPECT_EQ(plate["license"], "QUIxMg==");
  EXPECT_EQ(plate["plateid"].asUInt(), 0U);
}

TEST_F(GetLastResult, UsesNoMoreThanTheRecordOfALongReply) {
  Answers("BUS_GET_IVS_INFO", RecordBytes().PlateId(3).str() + std::string(1000, 'x'));
  EXPECT_TRUE(Ask());
  BusHeard();
  EXPECT_EQ(PlateResult()["plateid"].asUInt(), 3U);
}

TEST_F(GetLastResult, ChecksPayloadTypeAndVersion) {
  EXPECT_FALSE(CloudSends("get_last_result", "[]"));
  EXPECT_EQ(Logged(4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("get_last_result", "{}"));
  EXPECT_EQ(Logged(4, "payload parameter is incomplete and type is missing"), 1U);
  EXPECT_FALSE(CloudSends("get_last_result", R"({"type":"get_sn"})"));
  EXPECT_FALSE(CloudSends("get_last_result", R"({"type":"get_last_result"})", "1.1"));
}

TEST_F(GetLastResult, LeavesTheResponseAndTheQueueAsTheyAre) {
  Answers("BUS_GET_IVS_INFO", RecordBytes().PlateId(3).str());
  response_["kept"] = 1;
  Ask();
  BusHeard();
  PlateResult();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
  adapter_->OnMessagePublished(26);
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), "nothing");
}

}  // namespace
