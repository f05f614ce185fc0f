#include "desk_camera.h"

namespace virtual_camera {
namespace {

constexpr char kDisplayQueue[] = "AD_HTTP_REQUESTION";

class VoiceAndDisplay : public DeskCamera {
 protected:
  Json::Value Record() {
    return Body(kDisplayQueue, R"({"type":"get_ad_voice_config","module":"AD_CONFIG_REQUESTION"})");
  }
  Json::Value Write(const Json::Value& body) {
    Json::Value request;
    request["type"] = "set_ad_voice_config";
    request["module"] = "AD_CONFIG_REQUESTION";
    request["body"] = body;
    return Parsed(Ask(kDisplayQueue, Compact(request)));
  }
};

TEST_F(VoiceAndDisplay, HaveSettingsFromTheBeginning) {
  for (const char* key : {"media_voice_time_ctrl", "led_bright_mode", "led_bright_time_ctrl"}) {
    EXPECT_TRUE(Record().isMember(key)) << key;
  }
}

TEST_F(VoiceAndDisplay, AreReadAndWrittenWhole) {
  Json::Value record = Record();
  record["led_bright_mode"] = 2;
  EXPECT_EQ(Write(record)["state_code"], 200);
  EXPECT_EQ(Record(), record);
}

TEST_F(VoiceAndDisplay, LoseWhatIsNotWritten) {
  Json::Value record;
  record["led_bright_mode"] = 1;
  Write(record);
  EXPECT_EQ(Compact(Record()), R"({"led_bright_mode":1})");
}

TEST_F(VoiceAndDisplay, KeepTheirSettingsOverARestart) {
  Json::Value record;
  record["media_voice_time_ctrl"] = "any value";
  Write(record);
  Restart();
  EXPECT_EQ(Record(), record);
}

TEST_F(VoiceAndDisplay, RefuseAnotherModuleAndWhatIsNoRecord) {
  const Json::Value before = Record();
  EXPECT_EQ(Parsed(Ask(kDisplayQueue, R"({"type":"get_ad_voice_config"})"))["state_code"], 400);
  EXPECT_EQ(Write(Json::Value())["state_code"], 400);
  EXPECT_EQ(Write(Json::Value(Json::arrayValue))["state_code"], 400);
  Json::Value huge;
  huge["text"] = std::string(70000, 'x');
  EXPECT_EQ(Write(huge)["state_code"], 400);
  EXPECT_EQ(Record(), before);
}

}  // namespace
}  // namespace virtual_camera
