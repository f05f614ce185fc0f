// Bound devices, RTSP addresses, talk-back and the switch of stay events.
#include "desk_camera.h"

namespace virtual_camera {
namespace {

class AgentServices : public DeskCamera {
 protected:
  Json::Value Talkback(const std::string& sn, const std::string& window) {
    return Body("user_request_talkback", R"({"type":"user_request_talkback","body":{"sn":")" + sn +
                                             R"(","window_size":)" + window + "}}");
  }
  Json::Value Rtsp(const std::string& sn) {
    return Body("user_get_rtsp_info",
                R"({"type":"user_get_rtsp_info","body":{"sn":")" + sn + R"("}})");
  }
  std::string Switch(const std::string& body) {
    return Compact(
        Body("stay_event_enable", R"({"type":"stay_event_enable","body":)" + body + "}"));
  }
};

TEST_F(AgentServices, ListBoundDevices) {
  const Json::Value devices =
      Body("user_get_mate_info", R"({"type":"user_get_mate_info"})")["devices"];
  ASSERT_EQ(devices.size(), 2U);
  for (const char* key : {"sn", "name", "type", "ip", "online"}) {
    EXPECT_TRUE(devices[0].isMember(key)) << key;
  }
}

TEST_F(AgentServices, GiveTheStreamOfThisCameraAtItsPresentAddress) {
  EXPECT_EQ(Rtsp("CAM1")["rtsp_url"], "rtsp://192.168.1.100:554/live/main");
  device->identity.Readdress("10.0.0.9", [](bool) {});
  EXPECT_EQ(Rtsp("CAM1")["rtsp_url"], "rtsp://10.0.0.9:554/live/main");
}

TEST_F(AgentServices, GiveTheStreamOfABoundDevice) {
  const Json::Value device_0 = device->companions.Bound()[0];
  EXPECT_EQ(Rtsp(device_0["sn"].asString())["rtsp_url"],
            "rtsp://" + device_0["ip"].asString() + ":554/live/main");
}

TEST_F(AgentServices, KnowNoStreamOfAStranger) {
  EXPECT_EQ(Rtsp("nobody")["state_code"], 400);
  EXPECT_EQ(Body("user_get_rtsp_info", R"({"type":"user_get_rtsp_info"})")["state_code"], 400);
}

TEST_F(AgentServices, KeepTheTalkbackPortOfADevice) {
  const int port = Talkback("CAM1", "16")["port"].asInt();
  EXPECT_EQ(Talkback("CAM1", "32")["port"], port);
  EXPECT_EQ(Compact(device->State()["talkback"]),
            R"([{"port":)" + std::to_string(port) + R"(,"sn":"CAM1","window_size":32}])");
}

TEST_F(AgentServices, GiveEachDeviceATalkbackPortOfItsOwn) {
  EXPECT_NE(Talkback("CAM1", "16")["port"],
            Talkback(device->companions.Bound()[0]["sn"].asString(), "16")["port"]);
}

TEST_F(AgentServices, RefuseTalkbackWithAStrangerOrWithoutAWindow) {
  EXPECT_EQ(Talkback("nobody", "16")["state_code"], 400);
  EXPECT_EQ(Talkback("CAM1", "0")["state_code"], 400);
  EXPECT_EQ(Talkback("CAM1", "65537")["state_code"], 400);
  EXPECT_EQ(Talkback("CAM1", "\"16\"")["state_code"], 400);
  EXPECT_TRUE(device->State()["talkback"].empty());
}

TEST_F(AgentServices, SwitchStayEventsOneByOne) {
  EXPECT_EQ(Switch(R"([{"event":"person_stay","enable":1}])"),
            R"({"applied":1,"person_stay":1,"refused":0,"vehicle_stay":0})");
  EXPECT_EQ(Switch(R"([{"event":"person_stay","enable":0},{"event":"vehicle_stay","enable":1}])"),
            R"({"applied":2,"person_stay":0,"refused":0,"vehicle_stay":1})");
}

TEST_F(AgentServices, RefuseSwitchesThatThereAreNot) {
  EXPECT_EQ(Switch(R"([{"event":"bird_stay","enable":1},{"event":"person_stay","enable":2},
                       {"event":"person_stay"},7,null])"),
            R"({"applied":0,"person_stay":0,"refused":5,"vehicle_stay":0})");
  EXPECT_NE(Switch("{}").find("400"), std::string::npos);
}

TEST_F(AgentServices, KeepTheSwitchesOverARestart) {
  Switch(R"([{"event":"vehicle_stay","enable":1}])");
  Restart();
  EXPECT_TRUE(device->lane_control.IsOn(LaneControl::Kind::kVehicle));
  EXPECT_FALSE(device->lane_control.IsOn(LaneControl::Kind::kPerson));
}

}  // namespace
}  // namespace virtual_camera
