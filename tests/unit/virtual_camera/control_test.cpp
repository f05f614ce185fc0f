// The commands of camera_ctl, from the camera's side, and the modes of the services.
#include "virtual_camera/control.h"

#include <filesystem>
#include <iterator>

#include "desk_camera.h"
#include "tarvex/base64.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {
namespace {

class Commands : public DeskCamera {
 protected:
  Json::Value Send(const std::string& command) {
    Control control(*device, modes, [] { return Json::Value("connected"); });
    std::string answer;
    control.Handle(command, [&answer](const std::string& text) { answer = text; });
    return Parsed(answer);
  }

  ServiceModes modes{{"EVS_BUS_REQUEST", "BUS_GET_IVS_INFO"}};
};

using Lines = std::vector<std::string>;

TEST_F(Commands, HaveACarPass) {
  const Json::Value answer = Send(R"({"command":"car","plate":"AB123CD"})");
  EXPECT_EQ(answer["ok"], true);
  EXPECT_EQ(answer["plate"], "AB123CD");
  EXPECT_EQ(answer["plate_id"], 1);
  EXPECT_EQ(Heard(), Lines{"plate AB123CD id 1"});
}

TEST_F(Commands, HaveACarOfChancePass) {
  EXPECT_FALSE(Send(R"({"command":"car"})")["plate"].asString().empty());
}

TEST_F(Commands, SetAnInput) {
  EXPECT_EQ(Send(R"({"command":"gpio-in","input":1,"level":1})")["ok"], true);
  EXPECT_EQ(Heard(), Lines{R"(EVT_SRV_EXTERNAL_TRIGGER {"body":{"flag":1,"source":1}})"});
}

TEST_F(Commands, TypeOnASerialChannel) {
  Send(R"({"command":"serial","channel":0,"text":"hi"})");
  EXPECT_EQ(Heard(),
            Lines{R"(EVS_RS485_READ {"body":{"data_len":2,"rs485_data":"aGk=","source":0}})"});
}

TEST_F(Commands, HaveAPersonStay) {
  EXPECT_EQ(Send(R"({"command":"lane","who":"person"})")["error"],
            "stay events of persons are off");
  device->lane_control.Switch(Parsed(R"([{"event":"person_stay","enable":1}])"));
  EXPECT_EQ(Send(R"({"command":"lane","who":"person"})")["ok"], true);
  EXPECT_EQ(Send(R"({"command":"lane","who":"bird"})")["ok"], false);
}

TEST_F(Commands, RenameAndReaddress) {
  EXPECT_EQ(Compact(Send(R"({"command":"rename","name":"Gate 7"})")), R"({"ok":true})");
  EXPECT_EQ(Compact(Send(R"({"command":"readdress","ip":"10.1.2.3"})")), R"({"ok":true})");
  key_values.is_away = true;
  EXPECT_TRUE(Send(R"({"command":"rename","name":"Gate 8"})")["warning"].isString());
}

TEST_F(Commands, ShowTheState) {
  const Json::Value state = Send(R"({"command":"state"})")["state"];
  for (const char* part : {"name", "ip", "clock", "results", "gpio", "head", "white_list",
                           "lane_control", "rs485", "voice_display", "bound_devices", "talkback",
                           "power", "announced", "services", "connections"}) {
    EXPECT_TRUE(state.isMember(part)) << part;
  }
}

TEST_F(Commands, ShowWhatAScreenOfTheCameraNeeds) {
  const Json::Value state = Send(R"({"command":"state"})")["state"];
  EXPECT_EQ(Compact(state["gpio"]),
            R"({"inputs":[0,0,0,0],"outputs":[0,0,0,0],"pulses":[0,0,0,0]})");
  EXPECT_TRUE(state["head"]["pan"].isDouble() && state["head"]["tilt"].isDouble());
  EXPECT_EQ(state["clock"]["offset_s"], 0);
  EXPECT_EQ(state["services"]["EVS_BUS_REQUEST"], "up");
  EXPECT_EQ(state["white_list"]["filter_enable"], 0);
  EXPECT_EQ(state["lane_control"]["person_stay"], 0);
  EXPECT_EQ(state["lane_control"]["vehicle_stay"], 0);
  EXPECT_TRUE(state["results"]["undelivered"].isInt64());
  EXPECT_TRUE(state["results"]["oldest_undelivered_age_s"].isInt64());
  for (const char* counter : {"written", "read", "dropped"}) {
    EXPECT_EQ(state["rs485"][1][counter], 0) << counter;
  }
}

TEST_F(Commands, DrawTheSceneAndKeepNoPictureOfIt) {
  const auto files = [this] {
    return std::distance(std::filesystem::recursive_directory_iterator(directory.path()), {});
  };
  CarPasses("AB123CD");
  const auto before = files();
  const std::string jpeg = Send(R"({"command":"scene"})")["jpeg"].asString();
  EXPECT_EQ(jpeg.substr(0, 4), "/9j/");  // how a JPEG begins
  EXPECT_EQ(files(), before);
}

TEST_F(Commands, DrawASceneThatFitsABusMessage) {
  options.pictures.width = 3840;
  options.pictures.quality = 95;
  Restart();
  CarPasses("AB123CD");
  EXPECT_LT(Send(R"({"command":"scene"})")["jpeg"].asString().size(), 700000U);
}

TEST_F(Commands, ShowTheWhiteListInParts) {
  device->white_list.Replace(Parsed(R"([{"plate":"C"},{"plate":"A"},{"plate":"B"}])"));
  EXPECT_EQ(Compact(Send(R"({"command":"white-list"})")),
            R"({"ok":true,"total":3,"white_list":[{"plate":"A"},{"plate":"B"},{"plate":"C"}]})");
  EXPECT_EQ(Compact(Send(R"({"command":"white-list","from":1,"count":1})")["white_list"]),
            R"([{"plate":"B"}])");
  EXPECT_EQ(Compact(Send(R"({"command":"white-list","from":3})")["white_list"]), "[]");
  EXPECT_EQ(Send(R"({"command":"white-list","from":-1})")["ok"], false);
}

TEST_F(Commands, ShowNoMoreOfTheWhiteListThanFitsABusMessage) {
  Json::Value records(Json::arrayValue);
  for (int i = 0; i < 300; ++i) {
    Json::Value record;
    record["plate"] = "P" + std::to_string(1000 + i);
    record["note"] = std::string(4000, 'x');
    records.append(record);
  }
  device->white_list.Replace(records);
  const Json::Value answer = Send(R"({"command":"white-list","count":1000})");
  EXPECT_EQ(answer["total"], 300);
  EXPECT_LT(Compact(answer).size(), size_t{1000000});
}

TEST_F(Commands, ShowTheRecordOfAResult) {
  CarPasses("AB123CD");
  const std::string record = *device->results.Newest();
  EXPECT_EQ(Send(R"({"command":"record","plate_id":1})")["record"], tarvex::Base64::Encode(record));
  EXPECT_EQ(Send(R"({"command":"record","plate_id":2})")["ok"], false);
  EXPECT_EQ(Send(R"({"command":"record"})")["ok"], false);
}

TEST_F(Commands, AreRefusedDuringAReboot) {
  device->power.Reboot();
  timeline.Advance(Power::kLeadIn_ms);
  EXPECT_EQ(Send(R"({"command":"car"})")["error"], "the camera is rebooting");
  EXPECT_EQ(Send(R"({"command":"gpio-in","input":1,"level":1})")["ok"], false);
  EXPECT_EQ(Send(R"({"command":"serial","channel":0,"text":"x"})")["ok"], false);
  EXPECT_EQ(Send(R"({"command":"state"})")["state"]["power"]["is_up"], false);
  EXPECT_TRUE(Heard().empty());
}

TEST_F(Commands, ThatMakeNoSenseAreRefused) {
  for (const char* command :
       {"", "nonsense", "[]", "{}", R"({"command":7})", R"({"command":"dance"})",
        R"({"command":"car","plate":7})", R"({"command":"gpio-in"})", R"({"command":"rename"})",
        R"({"command":"service","queue":"X"})",
        R"({"command":"service","queue":"EVS_BUS_REQUEST","mode":"slow"})"}) {
    EXPECT_EQ(Send(command)["ok"], false) << command;
  }
}

TEST_F(Commands, ChangeAServicesMode) {
  Send(R"({"command":"service","queue":"EVS_BUS_REQUEST","mode":"slow","delay_ms":250})");
  EXPECT_EQ(modes.Of("EVS_BUS_REQUEST").delay_ms, 250);
  EXPECT_EQ(Compact(modes.State()), R"({"BUS_GET_IVS_INFO":"up","EVS_BUS_REQUEST":"slow 250"})");
}

TEST(ModesOfServices, ServeUnlessDownOrSilent) {
  ServiceModes modes({"A", "B"});
  modes.Set("A", "down", 0);
  EXPECT_FALSE(modes.IsServed("A"));
  EXPECT_TRUE(modes.IsServed("B"));
  modes.SetSilent(true);
  EXPECT_FALSE(modes.IsServed("B"));
  modes.SetSilent(false);
  EXPECT_FALSE(modes.IsServed("A"));
  EXPECT_TRUE(modes.IsServed("B"));
}

TEST(ModesOfServices, TellOfEachChange) {
  ServiceModes modes({"A"});
  int changes = 0;
  modes.OnChange([&changes] { ++changes; });
  modes.Set("A", "garbage", 0);
  modes.SetSilent(true);
  EXPECT_EQ(changes, 2);
}

TEST(ModesOfServices, RefuseWhatThereIsNot) {
  ServiceModes modes({"A"});
  EXPECT_THROW(modes.Set("B", "up", 0), RequestError);
  EXPECT_THROW(modes.Set("A", "lazy", 0), RequestError);
  EXPECT_THROW(modes.Set("A", "slow", -1), RequestError);
  EXPECT_THROW(modes.Set("A", "slow", 600001), RequestError);
}

}  // namespace
}  // namespace virtual_camera
