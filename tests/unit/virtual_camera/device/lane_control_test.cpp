#include "desk_camera.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {
namespace {

namespace fs = std::filesystem;

class Lane : public DeskCamera {
 protected:
  void SwitchOnBoth() {
    device->lane_control.Switch(
        Parsed(R"([{"event":"person_stay","enable":1},{"event":"vehicle_stay","enable":1}])"));
  }

  Json::Value Stay(LaneControl::Kind kind, std::optional<std::string> plate = std::nullopt) {
    bus.heard.clear();
    device->lane_control.Stay(kind, plate);
    EXPECT_EQ(bus.heard.at(0).first, "BUS_SRV_LANECTRL_RESULT");
    return Parsed(bus.heard.at(0).second);
  }
};

TEST_F(Lane, AnnouncesNothingWhileItIsSwitchedOff) {
  EXPECT_THROW(device->lane_control.Stay(LaneControl::Kind::kPerson, std::nullopt), RequestError);
  EXPECT_THROW(device->lane_control.Stay(LaneControl::Kind::kVehicle, "A"), RequestError);
  EXPECT_TRUE(Heard().empty());
}

TEST_F(Lane, AnnouncesAPersonWithoutAPlate) {
  SwitchOnBoth();
  const Json::Value message = Stay(LaneControl::Kind::kPerson);
  EXPECT_EQ(message["results"][0]["event_type"], 128);
  EXPECT_EQ(message["results"][0]["lane_ctrl_prop"]["person_stay_result"]["alarm_state"], 1);
  EXPECT_FALSE(message["results"][0]["lane_ctrl_prop"].isMember("car_stay_result"));
  EXPECT_FALSE(message["results"][0].isMember("plate_result"));
}

TEST_F(Lane, AnnouncesAVehicleWithItsPlate) {
  SwitchOnBoth();
  const Json::Value message = Stay(LaneControl::Kind::kVehicle, "AB123CD");
  EXPECT_EQ(message["results"][0]["event_type"], 129);
  EXPECT_EQ(message["results"][0]["lane_ctrl_prop"]["car_stay_result"]["alarm_state"], 1);
  EXPECT_EQ(message["results"][0]["plate_result"]["license"], "AB123CD");
  EXPECT_GT(message["results"][0]["plate_result"]["plate_true_width"].asInt(), 0);
}

TEST_F(Lane, AnnouncesInTheLayoutOfTheBus) {
  SwitchOnBoth();
  const Json::Value message = Stay(LaneControl::Kind::kVehicle);
  EXPECT_EQ(message["cmd"], "common_alarm_result");
  EXPECT_EQ(message["module"], "TCP_BUS_REQUEST");
  EXPECT_EQ(message["type"], "common_alarm_result");
  EXPECT_TRUE(message["uid"].isUInt());
  EXPECT_EQ(message["device_info"]["dev_ip"], "192.168.1.100");
  EXPECT_EQ(message["device_info"]["dev_port"], 80);
  EXPECT_EQ(message["device_info"]["rule_id"], message["results"][0]["result_id"]);
  EXPECT_EQ(message["results"][0]["type"], "common_alarm_lane_control");
  EXPECT_GT(message["full_image"][0]["fe_crop_info"]["width"].asInt(), 0);
}

TEST_F(Lane, PadsItsTimeWithBlanks) {
  SwitchOnBoth();
  device->clock.SetLocal("2024-01-05 03:04:05");
  EXPECT_EQ(Stay(LaneControl::Kind::kPerson)["results"][0]["time"], "2024- 1- 5  3: 4: 5");
}

TEST_F(Lane, NamesItsPicturesAfterTheirIds) {
  SwitchOnBoth();
  const Json::Value message = Stay(LaneControl::Kind::kVehicle);
  const Json::Value& full = message["full_image"][0];
  const Json::Value& small = message["small_image"][0];
  const std::string lane = directory.path() + "/lane/";
  EXPECT_NE(full["full_image_id"], small["small_image_id"]);
  EXPECT_EQ(full["file_name"], lane + full["full_image_id"].asString() + ".jpg");
  EXPECT_EQ(small["file_name"], lane + small["small_image_id"].asString() + ".jpg");
  EXPECT_TRUE(fs::exists(full["file_name"].asString()));
  EXPECT_TRUE(fs::exists(small["file_name"].asString()));
}

TEST_F(Lane, GivesNoImageIdTwiceAlsoAfterARestart) {
  SwitchOnBoth();
  const Json::Value first = Stay(LaneControl::Kind::kPerson);
  Restart();
  const Json::Value second = Stay(LaneControl::Kind::kPerson);
  EXPECT_GT(second["full_image"][0]["full_image_id"].asInt(),
            first["small_image"][0]["small_image_id"].asInt());
  EXPECT_NE(second["uid"], first["uid"]);
}

TEST_F(Lane, KeepsTheLatestPictures) {
  SwitchOnBoth();
  for (int i = 0; i < 105; ++i) {
    Stay(LaneControl::Kind::kPerson);
  }
  const auto files = fs::directory_iterator(directory.path() + "/lane");
  EXPECT_EQ(std::distance(begin(files), end(files)), 200);
}

TEST_F(Lane, RefusesAPlateThatDoesNotFit) {
  SwitchOnBoth();
  EXPECT_THROW(device->lane_control.Stay(LaneControl::Kind::kVehicle, std::string(16, 'x')),
               RequestError);
}

TEST_F(Lane, SwitchesOfOneRequestAreStoredTogether) {
  int commits = 0;
  sqlite3_commit_hook(
      device->database.handle(), [](void* count) { return 0 * ++*static_cast<int*>(count); },
      &commits);
  Json::Value switches(Json::arrayValue);
  for (int i = 0; i < 3000; ++i) {
    switches.append(Parsed(R"({"event":"person_stay","enable":1})"));
    switches.append(Parsed(R"({"event":"vehicle_stay","enable":1})"));
  }
  EXPECT_EQ(device->lane_control.Switch(switches).applied, 6000);
  EXPECT_EQ(commits, 1);
}

TEST_F(Lane, SwitchesStayAsTheyWereWhenTheyCannotBeStored) {
  device->database.Execute(
      "CREATE TEMP TRIGGER failing BEFORE INSERT ON settings WHEN new.name = 'vehicle_stay' "
      "BEGIN SELECT RAISE(ABORT, 'no room'); END");
  EXPECT_THROW(SwitchOnBoth(), std::runtime_error);
  EXPECT_FALSE(device->lane_control.IsOn(LaneControl::Kind::kPerson));
  Restart();
  EXPECT_FALSE(device->lane_control.IsOn(LaneControl::Kind::kPerson));
}

}  // namespace
}  // namespace virtual_camera
