// The commands of camera_ctl, from the camera's side, and the modes of the services.
#include "virtual_camera/control.h"

#include "desk_camera.h"
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
