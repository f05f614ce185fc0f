// Serial input: the message "serial_data".
#include "adapter_test.h"

namespace {

class SerialInput : public AdapterTest {
 protected:
  void SetUp() override {
    platform().databases["skvdb"] = {{"dev_name", "R2F0ZQ=="},
                                     {"net_rj45", R"({"ip":"10.0.0.9"})"}};
    Start();
  }
  void Arrive(const std::string& text) {
    console_ = Console([&] { Deliver("EVS_RS485_READ", text); });
  }
  static std::string Payload(const std::string& channel, const std::string& data,
                             const std::string& length) {
    return R"({"body":{"SerialData":{"data":")" + data + R"(","dataLen":)" + length +
           R"(,"deviceName":"R2F0ZQ==","ipaddr":"10.0.0.9","serialChannel":)" + channel +
           R"(,"serialno":"SN0001"}}})";
  }
  std::string console_;
};

TEST_F(SerialInput, PublishesChannelDataAndLength) {
  Arrive(R"({"body":{"source":1,"rs485_data":"aGVsbG8=","data_len":5}})");
  EXPECT_EQ(Published(), "serial_data 14 " + Payload("1", "aGVsbG8=", "5"));
}

TEST_F(SerialInput, IsPrintedAndLoggedAsPublished) {
  Arrive(R"({"body":{"source":1,"rs485_data":"x","data_len":5}})");
  Published();
  EXPECT_EQ(console_, "GetSerialPushData:" + Payload("1", "x", "5") + "\n");
  EXPECT_EQ(LoggedBy("GetSerialPushData", 6, "GetSerialPushData"), 1U);
  EXPECT_EQ(LoggedBy("GetSerialPushData", 7, "GetSerialPushData:" + Payload("1", "x", "5") + " "),
            1U);
}

TEST_F(SerialInput, DoesNotCheckTheLengthAgainstTheData) {
  Arrive(R"({"body":{"source":0,"rs485_data":"abc","data_len":-700}})");
  EXPECT_EQ(Published(), "serial_data 14 " + Payload("0", "abc", "-700"));
}

TEST_F(SerialInput, PublishesDefaultsForWhatIsMissing) {
  for (const char* text : {"{}", R"({"body":{}})", R"({"body":null})", R"({"body":5})", "[]", "5",
                           "null", R"({"body":{"source":null,"rs485_data":null}})"}) {
    Arrive(text);
    EXPECT_EQ(Published(), "serial_data 14 " + Payload("0", "", "0")) << text;
  }
}

TEST_F(SerialInput, ReadsNumbersAsIntegersAndDataAsText) {
  Arrive(R"({"body":{"source":1.9,"rs485_data":17,"data_len":true}})");
  EXPECT_EQ(Published(), "serial_data 14 " + Payload("1", "17", "1"));
}

TEST_F(SerialInput, TakesTheNameAsLastRead) {
  platform().databases["skvdb"]["dev_name"] = "TmV3";
  Arrive("{}");
  EXPECT_EQ(PublishedPayload()["body"]["SerialData"]["deviceName"], "R2F0ZQ==");
}

TEST_F(SerialInput, AsksForTheAddressEachTime) {
  platform().databases["skvdb"]["net_rj45"] = R"({"ip":"10.0.0.10"})";
  Arrive("{}");
  EXPECT_EQ(PublishedPayload()["body"]["SerialData"]["ipaddr"], "10.0.0.10");
}

TEST_F(SerialInput, AnEmptyMessageDoesNothing) {
  Arrive("");
  EXPECT_EQ(LogLines().size(), 1U);  // the bus message's own line
  EXPECT_EQ(console_, "");
}

TEST_F(SerialInput, AMessageThatIsNoJsonIsLoggedAfterItsArrival) {
  for (const char* text : {"no json", "{", "{} x"}) {
    ForgetLogs();
    Arrive(text);
    EXPECT_EQ(LogLines(), (std::vector<std::string>{"7  OnDpMessage rcv msg mothod:EVS_RS485_READ ",
                                                    "6 GetSerialPushData", "3 rs485: Err data"}));
    EXPECT_EQ(LoggedBy("GetSerialPushData", 3, "rs485: Err data"), 1U);
    EXPECT_EQ(console_, "");
  }
}

TEST_F(SerialInput, OfAShapeThatCannotBeReadIsDroppedWithOneLine) {
  for (const char* body : {R"({"source":"1"})", R"({"rs485_data":[]})", R"({"data_len":{}})"}) {
    ForgetLogs();
    Arrive(std::string(R"({"body":)") + body + "}");
    EXPECT_EQ(Published(), "nothing") << body;
    EXPECT_EQ(LogLines(3).size(), 1U) << body;
  }
}

}  // namespace
