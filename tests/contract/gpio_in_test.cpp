#include "adapter_test.h"

namespace {

class GpioIn : public AdapterTest {
 protected:
  void SetUp() override {
    platform().databases["skvdb"] = {{"dev_name", "R2F0ZQ=="},
                                     {"net_rj45", R"({"ip":"10.0.0.9"})"}};
    Start();
  }
  static std::string Payload(const std::string& source, const std::string& value) {
    return R"({"body":{"AlarmGioIn":{"deviceName":"R2F0ZQ==","ipaddr":"10.0.0.9",)"
           R"("result":{"TriggerResult":{"source":)" +
           source + R"(,"value":)" + value + R"(}},"serialno":"SN0001"}}})";
  }
};

TEST_F(GpioIn, PublishesFlagAndSource) {
  Deliver("EVT_SRV_EXTERNAL_TRIGGER", R"({"body":{"flag":1,"source":2}})");
  EXPECT_EQ(Published(), "gpio_in 13 " + Payload("2", "1"));
}

TEST_F(GpioIn, IsLoggedAsPublished) {
  Deliver("EVT_SRV_EXTERNAL_TRIGGER", R"({"body":{"flag":1,"source":2}})");
  Published();
  EXPECT_EQ(LoggedBy("OnGpioEvent", 7, "GetGpioPushData:" + Payload("2", "1")), 1U);
}

TEST_F(GpioIn, CopiesBothWhateverTheyAre) {
  for (const char* value : {"null", "\"x\"", "[1]", R"({"a":1})", "1.5", "true"}) {
    Deliver("EVT_SRV_EXTERNAL_TRIGGER",
            std::string(R"({"body":{"flag":)") + value + R"(,"source":)" + value + "}}");
    EXPECT_EQ(Published(), "gpio_in 13 " + Payload(value, value));
  }
}

TEST_F(GpioIn, PublishesNullsForWhatIsMissing) {
  for (const char* text :
       {"{}", R"({"body":{}})", R"({"body":null})", R"({"body":5})", "[]", "5", "null", "\"x\""}) {
    Deliver("EVT_SRV_EXTERNAL_TRIGGER", text);
    EXPECT_EQ(Published(), "gpio_in 13 " + Payload("null", "null")) << text;
  }
}

TEST_F(GpioIn, AsksForTheNameEachTime) {
  platform().databases["skvdb"]["dev_name"] = "TmV3";
  Deliver("EVT_SRV_EXTERNAL_TRIGGER", "{}");
  EXPECT_EQ(PublishedPayload()["body"]["AlarmGioIn"]["deviceName"], "TmV3");
  EXPECT_EQ(Logged(6, "GetDevName : TmV3"), 1U);
}

TEST_F(GpioIn, AsksForTheAddressEachTime) {
  platform().databases["skvdb"]["net_rj45"] = R"({"ip":"10.0.0.10"})";
  Deliver("EVT_SRV_EXTERNAL_TRIGGER", "{}");
  EXPECT_EQ(PublishedPayload()["body"]["AlarmGioIn"]["ipaddr"], "10.0.0.10");
}

TEST_F(GpioIn, AnEmptyMessageDoesNothing) {
  Deliver("EVT_SRV_EXTERNAL_TRIGGER", "");
  EXPECT_EQ(LogLines().size(), 1U);  // the bus message's own line
}

TEST_F(GpioIn, AMessageThatIsNoJsonIsLogged) {
  for (const char* text : {"no json", "{", "{} x"}) {
    ForgetLogs();
    Deliver("EVT_SRV_EXTERNAL_TRIGGER", text);
    EXPECT_EQ(LoggedBy("OnGpioEvent", 3, "OnGpioIn: Err data"), 1U);
    EXPECT_EQ(LogLines().size(), 2U);
  }
}

}  // namespace
