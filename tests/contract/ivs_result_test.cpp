// The message "ivs_result", live and from the store.
#include "adapter_test.h"

namespace {

class IvsResult : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
};

TEST_F(IvsResult, HoldsNothingButAlarmInfoPlate) {
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  EXPECT_EQ(PublishedHead(), "ivs_result 11");
  const Json::Value payload = PublishedPayload();
  EXPECT_EQ(payload.getMemberNames(), Json::Value::Members{"AlarmInfoPlate"});
  EXPECT_EQ(payload["AlarmInfoPlate"]["result"].getMemberNames(),
            Json::Value::Members{"PlateResult"});
}

TEST_F(IvsResult, IsLoggedInStyledForm) {
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  EXPECT_EQ(
      LoggedBy("OnIvsResultEvent", 7, "ivs_result:" + PublishedPayload().toStyledString() + " :"),
      1U);
}

TEST_F(IvsResult, FromTheStoreIsMarkedAndTaggedApart) {
  AnswersNext("BUS_GET_IVS_INFO", R"({"body":{"offline_count":1}})");
  AnswersNext("BUS_GET_IVS_INFO", RecordBytes().PlateId(9).str() + "\x01\x02\x03\x04");
  EXPECT_TRUE(
      CloudSends("check_offline_record",
                 R"({"type":"check_offline_record","body":{"enable":"push","max_count":1}})"));
  RunPosted();
  BusHeard();
  BusHeard();
  EXPECT_EQ(PublishedHead(), "ivs_result 16");
  const Json::Value plate = PublishedPayload()["AlarmInfoPlate"]["result"]["PlateResult"];
  EXPECT_EQ(plate["isoffline"].asInt(), 1);
  EXPECT_EQ(plate["plateid"].asUInt(), 9U);
}

TEST_F(IvsResult, MayBeAskedForAgainFromWithinItsPublication) {
  Answers("BUS_GET_IVS_INFO", RecordBytes().PlateId(3).str());
  bool asked = false;
  on_publication_ = [&] {
    if (!asked) {
      asked = true;
      EXPECT_TRUE(CloudSends("get_last_result", R"({"type":"get_last_result"})"));
    }
  };
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  EXPECT_EQ(PublishedHead(), "ivs_result 11");
  PublishedPayload();
  EXPECT_EQ(PublishedHead(), "get_last_result 26");
  PublishedPayload();
  BusHeard();
}

}  // namespace
