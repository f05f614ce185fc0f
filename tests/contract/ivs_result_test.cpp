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

TEST_F(IvsResult, IsLoggedInStyledFormWithNumbersBelowZero) {
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes().Word(44, 0xFFFFFFFB).Word(48, 0x80000000));
  RunPosted();
  const std::string styled = PublishedPayload().toStyledString();
  EXPECT_NE(styled.find(" : -5,"), std::string::npos);
  EXPECT_EQ(Logged(7, "ivs_result:" + styled + " :"), 1U);
}

TEST_F(IvsResult, IsLoggedInStyledFormWhateverIsInIt) {
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  PublishedPayload();
  for (const char* user_data :
       {"", "plain", "\"quoted\"", "back\\slash", "tab\t", "caf\xC3\xA9", "\xFF\x80"}) {
    ForgetLogs();
    platform().databases["usr_data_kvdb"]["bus_cipher_data"] = user_data;
    adapter_->OnMessagePublished(11);
    BusHeard();
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes().PlateId(4));
    RunPosted();
    EXPECT_EQ(Logged(7, "ivs_result:" + PublishedPayload().toStyledString() + " :"), 1U)
        << user_data;
  }
}

TEST_F(IvsResult, HasNothingOfTheResultBeforeIt) {
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes().Text(0, "AB12345").Text(16, "ff").Word(60, 5));
  RunPosted();
  const Json::Value first = PublishedPayload();
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  const Json::Value second = PublishedPayload();
  const Json::Value& plate = second["AlarmInfoPlate"]["result"]["PlateResult"];
  EXPECT_EQ(plate["license"], "");
  EXPECT_EQ(plate["colorValue"], 0);
  EXPECT_EQ(plate["timeUsed"], 0);
  EXPECT_EQ(first["AlarmInfoPlate"]["result"]["PlateResult"]["colorValue"], 255);
}

TEST_F(IvsResult, HasNoPicturesOnceTheAdapterHasNoImageFunction) {
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  PublishedPayload();
  Console([this] { adapter_->Initialize(nullptr); });
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  const Json::Value plate = PublishedPayload()["AlarmInfoPlate"]["result"]["PlateResult"];
  EXPECT_FALSE(plate.isMember("imagePath"));
  EXPECT_FALSE(plate.isMember("imageFragmentPath"));
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
