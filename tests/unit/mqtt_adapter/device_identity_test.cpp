// Identity members beside the block of the live results.
#include "adapter_fixture.h"

namespace {

class DeviceIdentity : public AdapterFixture {};

TEST_F(DeviceIdentity, GivesTheDistributorsNumber) { EXPECT_EQ(adapter_.GetOemSn(), "OEM1"); }

TEST_F(DeviceIdentity, GivesAnEmptyDistributorsNumberWhereTheDeviceHasNoIdentity) {
  fake::ThePlatform().has_chw_info = false;
  EXPECT_EQ(adapter_.GetOemSn(), "");
}

TEST_F(DeviceIdentity, PacksTheBasicInfoFromWhatIsCached) {
  auto& platform = fake::ThePlatform();
  platform.databases["skvdb"] = {{"dev_name", "R2F0ZQ=="}, {"net_rj45", R"({"ip":"10.0.0.9"})"}};
  platform.databases["usr_data_kvdb"]["bus_cipher_data"] = "opaque";
  Start();
  platform.databases["skvdb"] = {{"dev_name", "TmV3"}, {"net_rj45", R"({"ip":"10.0.0.10"})"}};
  platform.databases["usr_data_kvdb"]["bus_cipher_data"] = "read anew";
  Json::Value out;
  EXPECT_EQ(adapter_.PackPlateBasicInfo(out), 0);
  EXPECT_EQ(Compact(out), R"({"channel":0,"deviceName":"R2F0ZQ==","ipaddr":"10.0.0.9",)"
                          R"("serialno":"SN0001","user_data":"read anew"})");
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(DeviceIdentity, PacksTheBasicInfoOfAChangedNameAndAddress) {
  Start();
  adapter_.OnNameChange(R"({"title":"Gate"})");
  adapter_.OnIpChange(R"({"ip":"10.0.0.11"})");
  Json::Value out = Parsed(R"({"kept":1,"channel":5})");
  adapter_.PackPlateBasicInfo(out);
  EXPECT_EQ(Compact(out), R"({"channel":0,"deviceName":"Gate","ipaddr":"10.0.0.11","kept":1,)"
                          R"("serialno":"SN0001","user_data":""})");
}

TEST_F(DeviceIdentity, PacksEmptyTextsBeforeInitialisation) {
  Json::Value out;
  EXPECT_EQ(adapter_.PackPlateBasicInfo(out), 0);
  EXPECT_EQ(Compact(out),
            R"({"channel":0,"deviceName":"","ipaddr":"","serialno":"","user_data":""})");
}

TEST_F(DeviceIdentity, FillsTheBlockBesideWhatIsThere) {
  Start();
  Json::Value out = Parsed(R"({"kept":1})");
  adapter_.GetDevInfoJson(out);
  EXPECT_EQ(Compact(out), R"({"channel":0,"deviceName":"SVZT","ipaddr":"","kept":1,)"
                          R"("serialno":"SN0001","user_data":""})");
}

}  // namespace
