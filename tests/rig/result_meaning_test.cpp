// What the result of a request means, as the contract says it: true that the device
// replied, not that it did it; false that it did not reply in time, not that it did nothing.
#include <ctime>

#include "rig_test.h"

namespace {

class ResultMeaning : public RigTest {
 protected:
  void SetUp() override {
    rig_.StartCamera();
    rig_.StartAgent();
  }

  /// The parts of the camera's state that a request can change.
  std::string State() {
    const Json::Value state = rig_.CameraState();
    Json::Value parts;
    for (const char* key : {"gpio", "white_list", "lane_control", "talkback", "rs485"}) {
      parts[key] = state[key];
    }
    parts["clock"] = state["clock"]["offset_s"];
    parts["pan"] = state["head"]["pan"];
    return Compact(parts);
  }

  bool HeadMoves() { return rig_.CameraState()["head"]["is_panning"].asBool(); }
};

TEST_F(ResultMeaning, OfWhatTheDeviceRefusesIsTrueAndNothingChanges) {
  struct Refused {
    const char* name;
    const char* body;
    const char* published;  ///< payload, or null
  };
  constexpr Refused kRefused[] = {
      {"set_time", R"({"year":2030,"month":2,"day":31,"hour":0,"min":0,"sec":0})", nullptr},
      {"gpio_out", R"({"io":99,"value":1})", nullptr},
      {"get_io_out_status", R"({"gpio":99})", R"({"gpio":99,"value":null})"},
      {"serial_data", R"({"serialData":[{"serialChannel":7,"data":"QQ=="}]})", nullptr},
      {"set_cloud_ctrl", R"({"type":6})", nullptr},
      {"agent_rtsp_url", R"({"sn":"nobody"})", R"({"body":null,"state_code":200})"},
      {"agent_talkback_port", R"({"sn":"VCMATE0001","window_size":0})",
       R"({"body":null,"state_code":200})"},
      {"lanectrl_result_cfg", R"([{"event":"nobody_stays","enable":1}])", nullptr},
      {"white_list_operator", R"({"operator_type":"update_or_add","dldb_rec":{"name":"A"}})",
       R"({"operator_type":"update_or_add","state_code":200})"},
      {"check_offline_record", R"({"enable":"perhaps"})", nullptr},
  };
  const std::string before = State();
  for (const Refused& refused : kRefused) {
    SCOPED_TRACE(refused.name);
    EXPECT_EQ(rig_.Request(refused.name, refused.body)["result"], true);
    if (refused.published != nullptr) {
      EXPECT_EQ(Compact(rig_.AwaitMessage(refused.name)["payload"]), refused.published);
    }
    EXPECT_EQ(State(), before);
  }
}

TEST_F(ResultMeaning, OfSelectIsFalse) {
  EXPECT_EQ(
      rig_.Request("white_list_operator", R"({"operator_type":"select","plate":"A"})")["result"],
      false);
}

TEST_F(ResultMeaning, OfAnOutputThatMovesTooLateIsFalse) {
  rig_.Ctl({"service", "EVS_GPIO_CONTROL", "slow", "600"});
  EXPECT_EQ(rig_.Request("gpio_out", R"({"io":1,"value":1})")["result"], false);
  EXPECT_TRUE(WaitUntil([this] { return rig_.CameraState()["gpio"]["outputs"][1].asInt() == 1; }));
}

TEST_F(ResultMeaning, OfAMoveThatIsAnsweredTooLateIsFalseAndNoStopFollows) {
  rig_.Request("set_cloud_ctrl", R"({"type":0,"value":1})");
  rig_.Ctl({"service", "BUS_REQUEST_MESSAGE", "slow", "1500"});
  EXPECT_EQ(rig_.Request("set_cloud_ctrl", R"({"type":2})")["result"], false);
  EXPECT_TRUE(WaitUntil([this] { return HeadMoves(); }));
  rig_.Ctl({"service", "BUS_REQUEST_MESSAGE", "up"});
  EXPECT_EQ(rig_.Request("set_cloud_ctrl", R"({"type":8})")["result"], true);
  EXPECT_FALSE(HeadMoves());
}

TEST_F(ResultMeaning, OfLaneEventsTheIdsCountOnTheirOwn) {
  rig_.Request("lanectrl_result_cfg", R"([{"event":"vehicle_stay","enable":1}])");
  rig_.Ctl({"car"});
  rig_.Ctl({"car"});
  rig_.Ctl({"lane", "vehicle", "AB12345"});
  EXPECT_EQ(rig_.AwaitMessage("lanectrl_result")["payload"]["plateid"].asInt(), 1);
}

TEST_F(ResultMeaning, OfTheTimestampIsTheHostsClock) {
  rig_.Request("set_time", R"({"year":2030,"month":1,"day":1,"hour":0,"min":0,"sec":0})");
  const auto before = time(nullptr);
  rig_.Request("get_device_timestamp");
  const Json::Value payload = rig_.AwaitMessage("get_device_timestamp")["payload"];
  EXPECT_GE(payload["timestamp"].asInt64(), before);
  EXPECT_LE(payload["timestamp"].asInt64(), time(nullptr));
  EXPECT_NE(rig_.CameraState()["clock"]["offset_s"].asInt64(), 0);
}

}  // namespace
