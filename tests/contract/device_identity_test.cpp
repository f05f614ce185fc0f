// The identity block of the published results, and where it comes from.
#include "adapter_test.h"

namespace {

class DeviceIdentity : public AdapterTest {
 protected:
  /// The identity block of a result published now.
  Json::Value Block() {
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
    RunPosted();
    Json::Value block = PublishedPayload()["AlarmInfoPlate"];
    block.removeMember("result");
    return block;
  }
};

TEST_F(DeviceIdentity, CarriesSerialNumberNameAddressUserDataAndChannelZero) {
  platform().databases["skvdb"] = {{"dev_name", "R2F0ZSAx"}, {"net_rj45", R"({"ip":"10.0.0.9"})"}};
  platform().databases["usr_data_kvdb"] = {{"bus_cipher_data", "opaque {text}"}};
  Start();
  EXPECT_EQ(Compact(Block()),
            R"({"channel":0,"deviceName":"R2F0ZSAx","ipaddr":"10.0.0.9","serialno":"SN0001",)"
            R"("user_data":"opaque {text}"})");
}

TEST_F(DeviceIdentity, HasDefaultsWithEmptyDatabases) {
  Start();
  EXPECT_EQ(Compact(Block()),
            R"({"channel":0,"deviceName":"SVZT","ipaddr":"","serialno":"SN0001","user_data":""})");
  EXPECT_EQ(LoggedBy("GetDeviceIpFromDb", 3, "Get net_rj45 Failed"), 1U);
  EXPECT_EQ(LoggedBy("GetDevName", 6, "GetDevName : SVZT"), 1U);
}

TEST_F(DeviceIdentity, TakesTheDefaultForAnEmptyName) {
  platform().databases["skvdb"]["dev_name"] = "";
  Start();
  EXPECT_EQ(Block()["deviceName"], "SVZT");
}

TEST_F(DeviceIdentity, ReadsTheNameAnewForEachResult) {
  Start();
  platform().databases["skvdb"]["dev_name"] = "TmV3";
  EXPECT_EQ(Block()["deviceName"], "TmV3");
}

TEST_F(DeviceIdentity, KeepsTheSerialNumberOfInitialize) {
  Start();
  platform().sn = "OTHER";
  EXPECT_EQ(Block()["serialno"], "SN0001");
}

TEST_F(DeviceIdentity, KeepsTheOldAddressWhenTheNewTextHasNone) {
  platform().databases["skvdb"]["net_rj45"] = R"({"ip":"10.0.0.9"})";
  Start();
  for (const char* text : {"no json", "{}", R"({"ip":5})", "[]", "7"}) {
    platform().databases["skvdb"]["net_rj45"] = text;
    EXPECT_EQ(Block()["ipaddr"], "10.0.0.9") << text;
  }
  EXPECT_EQ(Logged(6, "device ip : 10.0.0.9"), 5U);
}

TEST_F(DeviceIdentity, HasNoAddressWhileTheDatabaseHasNone) {
  platform().databases["skvdb"]["net_rj45"] = R"({"ip":"10.0.0.9"})";
  Start();
  platform().databases["skvdb"].clear();
  EXPECT_EQ(Block()["ipaddr"], "");
}

TEST_F(DeviceIdentity, AnAddressChangeIsLogged) {
  Start();
  Deliver("SYS_SRV_IP_CHANGED", R"({"ip":"10.0.0.77"})");
  EXPECT_EQ(LoggedBy("OnIpChange", 6, "MQTTAdapter::OnIpChange."), 1U);
}

TEST_F(DeviceIdentity, AnAddressChangeHoldsWhereTheDatabaseHasNoUsableText) {
  platform().databases["skvdb"]["net_rj45"] = "{}";
  Start();
  Deliver("SYS_SRV_IP_CHANGED", R"({"ip":"10.0.0.77"})");
  EXPECT_EQ(Block()["ipaddr"], "10.0.0.77");
  for (const char* body : {"", "no json", R"({"ip":1})", "[]", "\"x\""}) {
    Deliver("SYS_SRV_IP_CHANGED", body);
    EXPECT_EQ(Block()["ipaddr"], "10.0.0.77") << body;
  }
}

TEST_F(DeviceIdentity, AnAddressChangeEndsWithTheNextResultWhereTheDatabaseSaysOtherwise) {
  platform().databases["skvdb"]["net_rj45"] = R"({"ip":"10.0.0.5"})";
  Start();
  EXPECT_EQ(Block()["ipaddr"], "10.0.0.5");
  Deliver("SYS_SRV_IP_CHANGED", R"({"ip":"10.0.0.77"})");
  EXPECT_EQ(Block()["ipaddr"], "10.0.0.5");
  platform().databases["skvdb"]["net_rj45"] = R"({"ip":"10.0.0.6"})";
  EXPECT_EQ(Block()["ipaddr"], "10.0.0.6");
}

TEST_F(DeviceIdentity, ANameChangeHoldsRawUntilTheNameIsReadAgain) {
  Start();
  Deliver("SS_DEV_NAME_CHANGED", R"({"title":"Gate 7"})");
  EXPECT_EQ(LoggedBy("OnNameChange", 6, "MQTTAdapter::OnNameChange."), 1U);
  Console([this] { Deliver("EVS_RS485_READ", "{}"); });  // publishes the name as last known
  EXPECT_EQ(PublishedPayload()["body"]["SerialData"]["deviceName"], "Gate 7");
  EXPECT_EQ(Block()["deviceName"], "SVZT");
}

TEST_F(DeviceIdentity, ANameChangeWithoutATitleIsIgnored) {
  Start();
  Deliver("SS_DEV_NAME_CHANGED", R"({"title":"Gate 7"})");
  for (const char* body : {"", "no json", R"({"title":7})", "[]", "{}"}) {
    Deliver("SS_DEV_NAME_CHANGED", body);
  }
  Console([this] { Deliver("EVS_RS485_READ", "{}"); });
  EXPECT_EQ(PublishedPayload()["body"]["SerialData"]["deviceName"], "Gate 7");
}

}  // namespace
