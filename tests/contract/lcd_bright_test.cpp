// The requests "get_lcd_bright" and "set_lcd_bright". The device says led where the
// cloud says lcd.
#include "adapter_test.h"

namespace {

const char kReadBrightness[] =
    R"(AD_HTTP_REQUESTION {"type":"get_ad_voice_config","module":"AD_CONFIG_REQUESTION"})"
    " timeout=5000";

class GetLcdBright : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Get() { return CloudSends("get_lcd_bright", R"({"type":"get_lcd_bright"})"); }
};

TEST_F(GetLcdBright, FillsTheResponseAndPublishesThatObject) {
  Answers("AD_HTTP_REQUESTION",
          R"({"body":{"led_bright_mode":2,"led_bright_time_ctrl":["x"],"other":2}})");
  response_["kept"] = 1;
  EXPECT_TRUE(Get());
  EXPECT_EQ(BusHeard(), kReadBrightness);
  EXPECT_EQ(Compact(response_),
            R"({"body":{"lcd_bright_mode":2,"lcd_bright_time_ctrl":["x"]},"kept":1})");
  EXPECT_EQ(Published(), "get_lcd_bright 29 " + Compact(response_));
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

TEST_F(GetLcdBright, AnswersNullsWhereTheRecordLacksThem) {
  for (const char* reply :
       {"{}", R"({"body":{"lcd_bright_mode":2}})", R"({"body":5})", "[]", "null", "5"}) {
    Answers("AD_HTTP_REQUESTION", reply);
    EXPECT_TRUE(Get()) << reply;
    BusHeard();
    EXPECT_EQ(Published(),
              R"(get_lcd_bright 29 {"body":{"lcd_bright_mode":null,"lcd_bright_time_ctrl":null}})");
  }
}

TEST_F(GetLcdBright, LooksNeitherAtThePayloadNorAtTheVersion) {
  Answers("AD_HTTP_REQUESTION", R"({"body":{}})");
  for (const char* payload : {"null", "[]", "5", "{}", R"({"type":"other"})"}) {
    EXPECT_TRUE(CloudSends("get_lcd_bright", payload, "7.7"));
    EXPECT_EQ(BusHeard(), kReadBrightness);
    EXPECT_EQ(PublishedHead(), "get_lcd_bright 29");
    PublishedPayload();
  }
}

TEST_F(GetLcdBright, CountsEveryResultButZeroAsSuccess) {
  Answers("AD_HTTP_REQUESTION", "{}", -1);
  EXPECT_TRUE(Get());
  BusHeard();
  PublishedPayload();
}

TEST_F(GetLcdBright, FailsWithoutALineWhenTheReadFails) {
  AnswersNext("AD_HTTP_REQUESTION", R"({"body":{}})", 0);
  AnswersNext("AD_HTTP_REQUESTION", "no json");
  AnswersNext("AD_HTTP_REQUESTION", "");
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(Get());
    EXPECT_EQ(BusHeard(), kReadBrightness);
  }
  EXPECT_TRUE(response_.isNull());
  EXPECT_EQ(LogLines().size(), 3U);
}

class SetLcdBright : public AdapterTest {
 protected:
  void SetUp() override {
    Start();
    Answers("AD_HTTP_REQUESTION",
            R"({"body":{"led_bright_mode":2,"led_bright_time_ctrl":"old","volume":5}})");
  }
  bool Set(const std::string& body = R"({"lcd_bright_mode":1,"lcd_bright_time_ctrl":"new"})") {
    return CloudSends("set_lcd_bright", R"({"type":"set_lcd_bright","body":)" + body + "}");
  }
  static std::string Write(const std::string& body) {
    return R"(AD_HTTP_REQUESTION {"body":)" + body +
           R"(,"module":"AD_CONFIG_REQUESTION","type":"set_ad_voice_config"} timeout=5000)";
  }
};

TEST_F(SetLcdBright, WritesTheRecordBackWithItsTwoKeysReplaced) {
  EXPECT_TRUE(Set());
  EXPECT_EQ(BusHeard(), kReadBrightness);
  EXPECT_EQ(BusHeard(), Write(R"({"led_bright_mode":1,"led_bright_time_ctrl":"new","volume":5})"));
  EXPECT_EQ(Published(), "nothing");
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

TEST_F(SetLcdBright, AnswersWithStateInTheResponse) {
  response_["kept"] = 1;
  EXPECT_TRUE(Set());
  BusHeard();
  BusHeard();
  EXPECT_EQ(Compact(response_), R"({"kept":1,"state":200})");
}

TEST_F(SetLcdBright, WritesOnlyItsKeysWhereTheRecordHasNoBody) {
  AnswersNext("AD_HTTP_REQUESTION", "{}");
  EXPECT_TRUE(Set());
  BusHeard();
  EXPECT_EQ(BusHeard(), Write(R"({"led_bright_mode":1,"led_bright_time_ctrl":"new"})"));
}

TEST_F(SetLcdBright, WithoutBothKeysReadsButWritesNothing) {
  for (const char* body : {R"({"lcd_bright_mode":1})", R"({"lcd_bright_time_ctrl":1})", "{}",
                           "null", "[]", R"({"led_bright_mode":1,"led_bright_time_ctrl":1})"}) {
    ForgetLogs();
    EXPECT_FALSE(Set(body)) << body;
    EXPECT_EQ(BusHeard(), kReadBrightness);
    EXPECT_EQ(LoggedBy("DoCmdSetLcdBright", 3,
                       "SetLcdBright Fail, Dont have lcd_bright_time_ctrl or lcd_bright_mode"),
              1U);
    EXPECT_TRUE(response_.isNull());
  }
}

TEST_F(SetLcdBright, TakesNullsAsValues) {
  EXPECT_TRUE(Set(R"({"lcd_bright_mode":null,"lcd_bright_time_ctrl":null})"));
  BusHeard();
  EXPECT_EQ(BusHeard(),
            Write(R"({"led_bright_mode":null,"led_bright_time_ctrl":null,"volume":5})"));
}

TEST_F(SetLcdBright, FailsWithoutALineWhenReadOrWriteFails) {
  AnswersNext("AD_HTTP_REQUESTION", R"({"body":{}})", 0);
  EXPECT_FALSE(Set());
  EXPECT_EQ(BusHeard(), kReadBrightness);
  AnswersNext("AD_HTTP_REQUESTION", R"({"body":{}})");
  AnswersNext("AD_HTTP_REQUESTION", "{}", 0);
  EXPECT_FALSE(Set());
  BusHeard();
  BusHeard();
  EXPECT_TRUE(response_.isNull());
  EXPECT_EQ(LogLines().size(), 2U);
}

TEST_F(SetLcdBright, CountsEveryResultButZeroAsSuccess) {
  AnswersNext("AD_HTTP_REQUESTION", R"({"body":{}})", -1);
  AnswersNext("AD_HTTP_REQUESTION", "no json", -1);
  EXPECT_TRUE(Set());
  BusHeard();
  BusHeard();
}

TEST_F(SetLcdBright, LooksNeitherAtTheTypeNorAtTheVersion) {
  EXPECT_TRUE(CloudSends("set_lcd_bright",
                         R"({"body":{"lcd_bright_mode":1,"lcd_bright_time_ctrl":2}})", "7.7"));
  BusHeard();
  BusHeard();
}

class LcdBrightWithoutBus : public AdapterTest {};

TEST_F(LcdBrightWithoutBus, IsRefused) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(CloudSends("get_lcd_bright", "{}"));
  EXPECT_FALSE(
      CloudSends("set_lcd_bright", R"({"body":{"lcd_bright_mode":1,"lcd_bright_time_ctrl":2}})"));
  EXPECT_EQ(LogLines(3).size(), 0U);
}

}  // namespace
