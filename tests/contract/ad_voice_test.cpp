// The requests "get_ad_voice" and "set_ad_voice".
#include "adapter_test.h"

namespace {

const char kReadVoice[] =
    R"(AD_HTTP_REQUESTION {"type":"get_ad_voice_config","module":"AD_CONFIG_REQUESTION"})"
    " timeout=5000";

class GetAdVoice : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Get() { return CloudSends("get_ad_voice", R"({"type":"get_ad_voice"})"); }
};

TEST_F(GetAdVoice, FillsTheResponseAndPublishesThatObject) {
  Answers("AD_HTTP_REQUESTION", R"({"body":{"media_voice_time_ctrl":{"on":1},"other":2}})");
  EXPECT_TRUE(Get());
  EXPECT_EQ(BusHeard(), kReadVoice);
  EXPECT_EQ(Compact(response_), R"({"body":{"media_voice_time_ctrl":{"on":1}}})");
  EXPECT_EQ(Published(), R"(get_ad_voice 28 {"body":{"media_voice_time_ctrl":{"on":1}}})");
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

TEST_F(GetAdVoice, LeavesOtherMembersOfTheResponseAsTheyAre) {
  Answers("AD_HTTP_REQUESTION", R"({"body":{"media_voice_time_ctrl":7}})");
  response_ = Parsed(R"({"kept":1,"body":{"too":2}})");
  EXPECT_TRUE(Get());
  BusHeard();
  EXPECT_EQ(Compact(response_), R"({"body":{"media_voice_time_ctrl":7,"too":2},"kept":1})");
  EXPECT_EQ(PublishedPayload(), response_);
}

TEST_F(GetAdVoice, CopiesTheValueWhateverItIs) {
  for (const char* value : {"null", "1", "\"x\"", "[]", "[1,{\"a\":2}]", "true"}) {
    Answers("AD_HTTP_REQUESTION",
            std::string(R"({"body":{"media_voice_time_ctrl":)") + value + "}}");
    EXPECT_TRUE(Get());
    BusHeard();
    EXPECT_EQ(Published(),
              std::string(R"(get_ad_voice 28 {"body":{"media_voice_time_ctrl":)") + value + "}}");
  }
}

TEST_F(GetAdVoice, AnswersNullWhereTheRecordLacksIt) {
  for (const char* reply : {"{}", R"({"body":{}})", R"({"body":5})", "[]", "null", "5"}) {
    Answers("AD_HTTP_REQUESTION", reply);
    EXPECT_TRUE(Get()) << reply;
    BusHeard();
    EXPECT_EQ(Published(), R"(get_ad_voice 28 {"body":{"media_voice_time_ctrl":null}})");
  }
}

TEST_F(GetAdVoice, LooksNeitherAtThePayloadNorAtTheVersion) {
  Answers("AD_HTTP_REQUESTION", R"({"body":{}})");
  for (const char* payload : {"null", "[]", "5", "{}", R"({"type":"other"})"}) {
    EXPECT_TRUE(CloudSends("get_ad_voice", payload, "7.7"));
    EXPECT_EQ(BusHeard(), kReadVoice);
    EXPECT_EQ(PublishedHead(), "get_ad_voice 28");
    PublishedPayload();
  }
}

TEST_F(GetAdVoice, CountsEveryResultButZeroAsSuccess) {
  Answers("AD_HTTP_REQUESTION", "{}", -1);
  EXPECT_TRUE(Get());
  BusHeard();
  EXPECT_EQ(PublishedHead(), "get_ad_voice 28");
  PublishedPayload();
}

TEST_F(GetAdVoice, FailsWithoutALineWhenTheRequestFails) {
  response_["kept"] = 1;
  Answers("AD_HTTP_REQUESTION", R"({"body":{"media_voice_time_ctrl":1}})", 0);
  EXPECT_FALSE(Get());
  EXPECT_EQ(BusHeard(), kReadVoice);
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
  EXPECT_EQ(LogLines().size(), 1U);
}

TEST_F(GetAdVoice, FailsWithoutALineWhenTheReplyIsNoJson) {
  for (const char* reply : {"", "no json", "{"}) {
    ForgetLogs();
    Answers("AD_HTTP_REQUESTION", reply);
    EXPECT_FALSE(Get());
    EXPECT_EQ(BusHeard(), kReadVoice);
    EXPECT_TRUE(response_.isNull());
    EXPECT_EQ(LogLines().size(), 1U);
  }
}

class SetAdVoice : public AdapterTest {
 protected:
  void SetUp() override {
    Start();
    Answers("AD_HTTP_REQUESTION",
            R"({"body":{"media_voice_time_ctrl":"old","volume":[1,2],"led_bright_mode":3}})");
  }
  bool Set(const std::string& body = R"({"media_voice_time_ctrl":"new"})",
           const std::string& version = "1.0") {
    return CloudSends("set_ad_voice", R"({"type":"set_ad_voice","body":)" + body + "}", version);
  }
  static std::string Write(const std::string& body) {
    return R"(AD_HTTP_REQUESTION {"body":)" + body +
           R"(,"module":"AD_CONFIG_REQUESTION","type":"set_ad_voice_config"} timeout=5000)";
  }
};

TEST_F(SetAdVoice, WritesTheRecordBackWithItsOneKeyReplaced) {
  EXPECT_TRUE(Set(R"({"media_voice_time_ctrl":"new","volume":9})"));
  EXPECT_EQ(BusHeard(), kReadVoice);
  EXPECT_EQ(BusHeard(),
            Write(R"({"led_bright_mode":3,"media_voice_time_ctrl":"new","volume":[1,2]})"));
  EXPECT_EQ(Published(), "nothing");
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

TEST_F(SetAdVoice, AnswersWithStateInTheResponse) {
  response_["kept"] = 1;
  EXPECT_TRUE(Set());
  BusHeard();
  BusHeard();
  EXPECT_EQ(Compact(response_), R"({"kept":1,"state":200})");
}

TEST_F(SetAdVoice, WritesTheValueWhateverItIs) {
  for (const char* value : {"null", "1", "[]", R"({"a":[1]})", "false"}) {
    EXPECT_TRUE(Set(std::string(R"({"media_voice_time_ctrl":)") + value + "}"));
    BusHeard();
    EXPECT_EQ(BusHeard(), Write(std::string(R"({"led_bright_mode":3,"media_voice_time_ctrl":)") +
                                value + R"(,"volume":[1,2]})"));
  }
}

TEST_F(SetAdVoice, WritesOnlyItsKeyWhereTheRecordHasNoBody) {
  for (const char* reply : {"{}", "[]", "5", R"({"body":null})"}) {
    AnswersNext("AD_HTTP_REQUESTION", reply);
    EXPECT_TRUE(Set());
    BusHeard();
    EXPECT_EQ(BusHeard(), Write(R"({"media_voice_time_ctrl":"new"})")) << reply;
  }
}

TEST_F(SetAdVoice, WithoutItsKeyReadsButWritesNothing) {
  for (const char* body : {"{}", "null", "[]", "5", R"({"media_voice":1})"}) {
    ForgetLogs();
    EXPECT_FALSE(Set(body)) << body;
    EXPECT_EQ(BusHeard(), kReadVoice);
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(LoggedBy("DoCmdSetAdVoice", 3, "SetAdVoice Fail, Dont have media_voice_time_ctrl"),
              1U);
    EXPECT_TRUE(response_.isNull());
  }
}

TEST_F(SetAdVoice, FailsWithoutALineWhenTheReadFails) {
  AnswersNext("AD_HTTP_REQUESTION", R"({"body":{}})", 0);
  AnswersNext("AD_HTTP_REQUESTION", "no json");
  EXPECT_FALSE(Set("{}"));
  EXPECT_FALSE(Set("{}"));
  EXPECT_EQ(BusHeard(), kReadVoice);
  EXPECT_EQ(BusHeard(), kReadVoice);
  EXPECT_EQ(LogLines(3).size(), 0U);
}

TEST_F(SetAdVoice, FailsWithoutALineWhenTheWriteFails) {
  AnswersNext("AD_HTTP_REQUESTION", R"({"body":{}})");
  AnswersNext("AD_HTTP_REQUESTION", "{}", 0);
  EXPECT_FALSE(Set());
  BusHeard();
  EXPECT_EQ(BusHeard(), Write(R"({"media_voice_time_ctrl":"new"})"));
  EXPECT_TRUE(response_.isNull());
  EXPECT_EQ(LogLines().size(), 1U);
}

TEST_F(SetAdVoice, CountsEveryResultButZeroAsSuccessAndReadsNoReplyToTheWrite) {
  AnswersNext("AD_HTTP_REQUESTION", R"({"body":{}})", -1);
  AnswersNext("AD_HTTP_REQUESTION", "no json", -1);
  EXPECT_TRUE(Set());
  BusHeard();
  BusHeard();
  EXPECT_EQ(Compact(response_), R"({"state":200})");
}

TEST_F(SetAdVoice, LooksNeitherAtTheTypeNorAtTheVersion) {
  EXPECT_TRUE(CloudSends("set_ad_voice", R"({"body":{"media_voice_time_ctrl":1}})", "7.7"));
  BusHeard();
  BusHeard();
}

class AdVoiceWithoutBus : public AdapterTest {};

TEST_F(AdVoiceWithoutBus, IsRefused) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(CloudSends("get_ad_voice", "{}"));
  EXPECT_FALSE(CloudSends("set_ad_voice", R"({"body":{"media_voice_time_ctrl":1}})"));
  EXPECT_EQ(LogLines(3).size(), 0U);
}

}  // namespace
