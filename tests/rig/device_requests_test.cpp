// Each request of the cloud changes the camera on the desk, and its answer says so.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "rig_test.h"

namespace {

class DeviceRequests : public RigTest {
 protected:
  void SetUp() override {
    rig_.StartCamera();
    rig_.StartAgent();
  }

  /// Sends a request that must be carried out. @return what it has as response.
  Json::Value Do(const std::string& name, const std::string& body = "") {
    const Json::Value response = rig_.Request(name, body);
    EXPECT_EQ(response["result"], true) << response;
    return response["response"];
  }

  /// The payload that a request has published, and its tag before it.
  std::string Published(const std::string& name) {
    const Json::Value message = rig_.AwaitMessage(name);
    return std::to_string(message["tag"].asInt()) + " " + Compact(message["payload"]);
  }

  /// Waits until the camera's state has a value somewhere.
  bool StateBecomes(const std::function<bool(const Json::Value&)>& condition) {
    return WaitUntil([&] { return condition(rig_.CameraState()); });
  }

  void SwitchStayEventsOn() {
    Do("lanectrl_result_cfg",
       R"([{"event":"person_stay","enable":1},{"event":"vehicle_stay","enable":1}])");
  }
};

TEST_F(DeviceRequests, TriggerHasACarRecognised) {
  Do("ivs_trigger");
  EXPECT_EQ(PlateResult(rig_.AwaitMessage("ivs_result"))["plateid"].asUInt(), 1U);
  EXPECT_EQ(rig_.CameraState()["results"]["recognised"].asInt(), 1);
}

TEST_F(DeviceRequests, GpioOutHoldsAndTheStatusTellsIt) {
  Do("gpio_out", R"({"io":2,"value":1,"delay":0})");
  EXPECT_EQ(rig_.CameraState()["gpio"]["outputs"][2].asInt(), 1);
  Do("get_io_out_status", R"({"gpio":2})");
  EXPECT_EQ(Published("get_io_out_status"), R"(27 {"gpio":2,"value":1})");
  Do("gpio_out", R"({"io":2,"value":0,"delay":0})");
  Do("get_io_out_status", R"({"gpio":2})");
  EXPECT_EQ(Published("get_io_out_status"), R"(27 {"gpio":2,"value":0})");
}

TEST_F(DeviceRequests, GpioOutPulses) {
  Do("gpio_out", R"({"io":1,"value":2,"delay":200})");
  EXPECT_EQ(rig_.CameraState()["gpio"]["pulses"][1].asInt(), 1);
  EXPECT_TRUE(StateBecomes(
      [](const Json::Value& state) { return state["gpio"]["outputs"][1].asInt() == 0; }));
}

TEST_F(DeviceRequests, SetTimeSetsTheClockThatResultsCarry) {
  Do("set_time", R"({"year":"2030","month":"1","day":"5","hour":"3","min":"4","sec":"5"})");
  EXPECT_EQ(rig_.CameraState()["clock"]["local"].asString().substr(0, 15), "2030-01-05 03:0");
  rig_.Ctl({"car"});
  const Json::Value time = PlateResult(rig_.AwaitMessage("ivs_result"))["timeStamp"]["Timeval"];
  EXPECT_EQ(time["decyear"].asInt(), 2030);
  EXPECT_EQ(time["decday"].asInt(), 5);
}

TEST_F(DeviceRequests, SetTimeOutOfRangeIsRefused) {
  EXPECT_EQ(rig_.Request("set_time", R"({"year":"2030","month":"13","day":"5","hour":"3",)"
                                     R"("min":"4","sec":"5"})")["result"],
            false);
  EXPECT_EQ(rig_.CameraState()["clock"]["offset_s"].asInt(), 0);
}

TEST_F(DeviceRequests, RebootSilencesTheServicesForAWhile) {
  rig_.camera->Terminate();
  rig_.StartCamera({"--reboot-seconds", "1"});
  Do("gpio_out", R"({"io":2,"value":1,"delay":0})");
  Do("reboot_dev");
  EXPECT_TRUE(WaitUntil([this] { return rig_.Request("snapshot")["result"] == false; }));
  EXPECT_TRUE(WaitUntil([this] { return rig_.Request("snapshot")["result"] == true; }));
  EXPECT_EQ(rig_.CameraState()["power"]["reboots"].asInt(), 1);
  EXPECT_EQ(rig_.CameraState()["gpio"]["outputs"][2].asInt(), 0);
}

TEST_F(DeviceRequests, SerialDataComesOutOfTheLineAndBack) {
  const std::string path = rig_.CameraState()["rs485"][1]["path"].asString();
  const int line = open(path.c_str(), O_RDWR | O_NOCTTY);
  ASSERT_GE(line, 0) << path;
  Do("serial_data", R"({"serialData":[{"serialChannel":1,"data":"aGVsbG8K","dataLen":6}]})");
  std::string read_text;
  EXPECT_TRUE(WaitUntil([&] {
    pollfd readable{line, POLLIN, 0};
    char buffer[64];
    if (poll(&readable, 1, 10) == 1) {
      const ssize_t count = read(line, buffer, sizeof(buffer));
      read_text.append(buffer, count > 0 ? static_cast<size_t>(count) : 0);
    }
    return read_text.size() >= 6;
  }));
  EXPECT_EQ(read_text, "hello\n");
  ASSERT_EQ(write(line, "back", 4), 4);
  const Json::Value serial = rig_.AwaitMessage("serial_data")["payload"]["body"]["SerialData"];
  EXPECT_EQ(serial["serialChannel"].asInt(), 1);
  EXPECT_EQ(FromBase64(serial["data"].asString()), "back");
  EXPECT_EQ(serial["dataLen"].asInt(), 4);
  close(line);
}

TEST_F(DeviceRequests, VoiceSettingsAreReadAndWrittenWhole) {
  const std::string settings = R"([{"begin":"08:00","end":"20:00","volume":55}])";
  EXPECT_EQ(Compact(Do("set_ad_voice", R"({"media_voice_time_ctrl":)" + settings + "}")),
            R"({"state":200})");
  const std::string expected = R"({"body":{"media_voice_time_ctrl":)" + settings + "}}";
  EXPECT_EQ(Compact(Do("get_ad_voice")), expected);
  EXPECT_EQ(Published("get_ad_voice"), "28 " + expected);
  const Json::Value record = rig_.CameraState()["voice_display"];
  EXPECT_EQ(record["led_idle_text"], "WELCOME");  // the rest is as it was
}

TEST_F(DeviceRequests, DisplaySettingsAreRenamedBothWays) {
  EXPECT_EQ(Compact(Do("set_lcd_bright", R"({"lcd_bright_mode":2,"lcd_bright_time_ctrl":[]})")),
            R"({"state":200})");
  EXPECT_EQ(rig_.CameraState()["voice_display"]["led_bright_mode"].asInt(), 2);
  const std::string expected = R"({"body":{"lcd_bright_mode":2,"lcd_bright_time_ctrl":[]}})";
  EXPECT_EQ(Compact(Do("get_lcd_bright")), expected);
  EXPECT_EQ(Published("get_lcd_bright"), "29 " + expected);
}

TEST_F(DeviceRequests, VoiceSettingsSurviveTheCamera) {
  Do("set_ad_voice", R"({"media_voice_time_ctrl":"kept"})");
  rig_.camera->Kill();
  rig_.StartCamera();
  EXPECT_TRUE(WaitUntil([this] { return rig_.Request("get_ad_voice")["result"] == true; }));
  EXPECT_EQ(Published("get_ad_voice"), R"(28 {"body":{"media_voice_time_ctrl":"kept"}})");
}

TEST_F(DeviceRequests, ATimedMoveStopsByItself) {
  Do("set_cloud_ctrl", R"({"type":0,"value":600})");
  Do("set_cloud_ctrl", R"({"type":2})");
  EXPECT_TRUE(rig_.CameraState()["head"]["is_panning"].asBool());
  ASSERT_TRUE(
      StateBecomes([](const Json::Value& state) { return !state["head"]["is_panning"].asBool(); }));
  const Json::Value head = rig_.CameraState()["head"];
  EXPECT_NE(head["pan"].asDouble(), 0.0);
  // Measured by the camera; wide, because the machine may be busy.
  EXPECT_GE(head["last_pan_move_ms"].asInt(), 500);
  EXPECT_LT(head["last_pan_move_ms"].asInt(), 5000);
}

TEST_F(DeviceRequests, AnUntimedMoveGoesOnUntilItIsStopped) {
  Do("set_cloud_ctrl", R"({"type":17})");
  EXPECT_TRUE(rig_.CameraState()["head"]["is_tilting"].asBool());
  Do("set_cloud_ctrl", R"({"type":64})");
  EXPECT_FALSE(rig_.CameraState()["head"]["is_tilting"].asBool());
}

TEST_F(DeviceRequests, ImageByIdIsDelivered) {
  rig_.Ctl({"car"});
  rig_.AwaitMessage("ivs_result");
  Do("get_image_by_id", R"({"id":1})");
  const Json::Value message = rig_.AwaitMessage("get_image_by_id");
  EXPECT_EQ(message["tag"].asInt(), 21);
  EXPECT_EQ(message["payload"]["state_code"].asInt(), 200);
  const std::string url = FromBase64(message["payload"]["imgPath"].asString());
  EXPECT_TRUE(std::filesystem::exists(url.substr(7))) << url;
}

TEST_F(DeviceRequests, ImageByAnUnknownIdIsRefused) {
  EXPECT_EQ(rig_.Request("get_image_by_id", R"({"id":77})")["result"], false);
}

TEST_F(DeviceRequests, SnapshotIsTakenNow) {
  Do("snapshot");
  const Json::Value message = rig_.AwaitMessage("snapshot");
  EXPECT_EQ(message["tag"].asInt(), 15);
  EXPECT_EQ(message["payload"]["imageformat"], "jpg");
  const std::string url = FromBase64(message["payload"]["imgPath"].asString());
  EXPECT_TRUE(std::filesystem::exists(url.substr(7))) << url;
  EXPECT_EQ(rig_.CameraState()["results"]["snapshots"].asInt(), 1);
}

TEST_F(DeviceRequests, BoundDevicesAreTheServicesOwn) {
  Do("bind_device_list");
  const Json::Value message = rig_.AwaitMessage("bind_device_list");
  EXPECT_EQ(message["tag"].asInt(), 18);
  EXPECT_EQ(message["payload"]["state_code"].asInt(), 200);
  EXPECT_FALSE(message["payload"]["body"].isNull());
}

TEST_F(DeviceRequests, RtspAddressIsTold) {
  Do("agent_rtsp_url", R"({"sn":"VCMATE0001"})");
  const Json::Value message = rig_.AwaitMessage("agent_rtsp_url");
  EXPECT_EQ(message["tag"].asInt(), 19);
  EXPECT_THAT(message["payload"]["body"]["rtsp_url"].asString(), testing::StartsWith("rtsp://"));
}

TEST_F(DeviceRequests, TalkbackOpensAChannel) {
  Do("agent_talkback_port", R"({"sn":"VCMATE0001","window_size":64})");
  EXPECT_EQ(rig_.AwaitMessage("agent_talkback_port")["tag"].asInt(), 20);
  EXPECT_EQ(rig_.CameraState()["talkback"].size(), 1U);
}

TEST_F(DeviceRequests, StayEventsAreSwitched) {
  EXPECT_THROW(rig_.Ctl({"lane", "person"}), std::runtime_error);
  SwitchStayEventsOn();
  EXPECT_EQ(rig_.CameraState()["lane_control"]["person_stay"].asInt(), 1);
  rig_.Ctl({"lane", "vehicle", "AB12345"});
  const Json::Value message = rig_.AwaitMessage("lanectrl_result");
  EXPECT_EQ(message["tag"].asInt(), 12);
  const Json::Value& payload = message["payload"];
  EXPECT_EQ(payload["event_type"].asInt(), 129);
  EXPECT_TRUE(payload["device_info"]["soft_ver"].isString());
  const Json::Value& entry = payload["result"][0];
  EXPECT_FALSE(entry["full_image"].isMember("file_name"));
  EXPECT_EQ(entry["plate_result"]["license"], "AB12345");
  for (const auto& [image, key] :
       {std::pair{"full_image", "full_image_path"}, std::pair{"small_image", "small_image_path"}}) {
    const std::string url = FromBase64(entry[image][key].asString());
    ASSERT_GT(url.size(), 7U) << image;
    EXPECT_TRUE(std::filesystem::exists(url.substr(7))) << url;
  }
}

TEST_F(DeviceRequests, WhiteListOpensTheGate) {
  Do("white_list_operator", R"({"operator_type":"update_or_add","dldb_rec":{"plate":"AB12345"}})");
  EXPECT_EQ(Published("white_list_operator"),
            R"(22 {"operator_type":"update_or_add","state_code":200})");
  Do("wl_check_status", R"({"cmd":"set","filter_enable":1})");
  const Json::Value status = rig_.AwaitMessage("wl_check_status");
  EXPECT_EQ(status["tag"].asInt(), 24);
  EXPECT_EQ(status["payload"]["body"]["filter_enable"].asInt(), 1);
  rig_.Ctl({"car", "ZZ99999"});
  EXPECT_EQ(rig_.CameraState()["gpio"]["pulses"][0].asInt(), 0);
  rig_.Ctl({"car", "AB12345"});
  EXPECT_EQ(rig_.CameraState()["gpio"]["pulses"][0].asInt(), 1);
  Do("white_list_operator", R"({"operator_type":"delete","plate":"AB12345"})");
  EXPECT_EQ(Published("white_list_operator"), R"(22 {"operator_type":"delete","state_code":200})");
  EXPECT_EQ(rig_.CameraState()["white_list"]["plates"].asInt(), 0);
}

TEST_F(DeviceRequests, InputsAreForwarded) {
  rig_.Ctl({"gpio-in", "2", "1"});
  const Json::Value message = rig_.AwaitMessage("gpio_in");
  EXPECT_EQ(message["tag"].asInt(), 13);
  EXPECT_EQ(Compact(message["payload"]["body"]["AlarmGioIn"]["result"]["TriggerResult"]),
            R"({"source":2,"value":1})");
}

TEST_F(DeviceRequests, AServiceThatIsDownFailsAtOnceAndOneThatIsUpAgainWorks) {
  rig_.Ctl({"service", "SS_BUS_REQUEST", "down"});
  EXPECT_EQ(rig_.Request("reboot_dev")["result"], false);
  rig_.Ctl({"service", "SS_BUS_REQUEST", "up"});
  EXPECT_EQ(rig_.Request("reboot_dev")["result"], true);
}

TEST_F(DeviceRequests, AServiceThatAnswersNonsenseIsRefused) {
  rig_.Ctl({"service", "AD_HTTP_REQUESTION", "garbage"});
  EXPECT_EQ(rig_.Request("get_ad_voice")["result"], false);
  rig_.Ctl({"service", "BUS_WHITE_LIST_INFO", "garbage"});
  EXPECT_EQ(
      rig_.Request("white_list_operator", R"({"operator_type":"delete","plate":"A"})")["result"],
      false);
  EXPECT_EQ(Published("white_list_operator"), R"(22 {"operator_type":"delete","state_code":500})");
}

TEST_F(DeviceRequests, ASlowServiceDelaysNoLongerThanItsTimeout) {
  const auto duration_of = [this](const std::string& name, const std::string& body) {
    const auto start = std::chrono::steady_clock::now();
    rig_.Request(name, body);
    return std::chrono::steady_clock::now() - start;
  };
  rig_.Ctl({"service", "EVS_GPIO_CONTROL", "slow", "60000"});
  rig_.Ctl({"service", "BUS_REQUEST_MESSAGE", "slow", "60000"});
  // Against each other: 300 ms and 1000 ms are what the two wait for.
  const auto gpio = duration_of("gpio_out", R"({"io":1,"value":1,"delay":0})");
  const auto head = duration_of("set_cloud_ctrl", R"({"type":3})");
  EXPECT_GE(gpio, std::chrono::milliseconds(290));
  EXPECT_GE(head, std::chrono::milliseconds(990));
  EXPECT_LT(head, std::chrono::milliseconds(30000));
  EXPECT_LT(gpio, head + std::chrono::milliseconds(2000));
}

}  // namespace
