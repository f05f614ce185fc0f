// A car in front of the camera becomes a message at the broker.
#include <filesystem>
#include <fstream>

#include "rig_test.h"

namespace {

class LiveResults : public RigTest {
 protected:
  void SetUp() override {
    rig_.StartCamera();
    rig_.StartAgent();
  }

  /// The file that a published picture reference names.
  static std::string PictureFile(const Json::Value& reference) {
    const std::string url = FromBase64(reference.asString());
    EXPECT_EQ(url.rfind("file://", 0), 0U) << url;
    return url.substr(7);
  }

  static bool IsJpeg(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    char head[2] = {};
    file.read(head, 2);
    return head[0] == '\xFF' && head[1] == '\xD8' && std::filesystem::file_size(path) > 500;
  }
};

TEST_F(LiveResults, ACarBecomesAnAcknowledgedResultWithItsPictures) {
  rig_.Ctl({"car", "AB12345"});
  const Json::Value message = AwaitPlate("AB12345");
  EXPECT_EQ(message["tag"].asInt(), 11);
  EXPECT_EQ(message["version"], "1.0");
  const Json::Value& alarm = message["payload"]["AlarmInfoPlate"];
  EXPECT_EQ(alarm["serialno"], rig_.sn);
  EXPECT_EQ(alarm["channel"].asInt(), 0);
  const Json::Value& plate = PlateResult(message);
  EXPECT_EQ(plate.size(), 26U) << plate;
  EXPECT_EQ(plate["isoffline"].asInt(), 0);
  EXPECT_GT(plate["confidence"].asInt(), 0);
  EXPECT_TRUE(IsJpeg(PictureFile(plate["imagePath"])));
  EXPECT_TRUE(IsJpeg(PictureFile(plate["imageFragmentPath"])));
  EXPECT_TRUE(AgentPrints("AB12345"));
  EXPECT_TRUE(AgentPrints(": acknowledged"));
}

TEST_F(LiveResults, AnAcknowledgedResultIsNotUndeliveredAnyMore) {
  rig_.Ctl({"car"});
  rig_.AwaitMessage("ivs_result");
  EXPECT_TRUE(
      WaitUntil([this] { return rig_.CameraState()["results"]["undelivered"].asInt() == 0; }));
  EXPECT_EQ(rig_.CameraState()["results"]["stored"].asInt(), 1);
}

TEST_F(LiveResults, ComeInOrderAndOnce) {
  for (int i = 0; i < 30; ++i) {
    rig_.Ctl({"car"});
  }
  for (unsigned int id = 1; id <= 30; ++id) {
    EXPECT_EQ(PlateResult(rig_.AwaitMessage("ivs_result"))["plateid"].asUInt(), id);
  }
}

TEST_F(LiveResults, CarryANewNameAndAddress) {
  rig_.Ctl({"rename", "Gate 7"});
  rig_.Ctl({"readdress", "10.1.2.3"});
  EXPECT_TRUE(WaitUntil([this] {
    rig_.Ctl({"car"});
    const Json::Value alarm = rig_.AwaitMessage("ivs_result")["payload"]["AlarmInfoPlate"];
    return FromBase64(alarm["deviceName"].asString()) == "Gate 7" && alarm["ipaddr"] == "10.1.2.3";
  }));
}

TEST_F(LiveResults, EndWithAnOfflineStatusWhenTheAgentIsEnded) {
  EXPECT_TRUE(rig_.agent->Terminate());
  EXPECT_EQ(rig_.agent->exit_code(), 0);
  EXPECT_TRUE(rig_.AwaitOnline(false));
}

TEST_F(LiveResults, EndWithAnOfflineStatusWhenTheAgentIsKilled) {
  rig_.agent->Kill();
  EXPECT_TRUE(rig_.AwaitOnline(false));
}

}  // namespace
