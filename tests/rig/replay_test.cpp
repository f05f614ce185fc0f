// Records captured from a bus, and run through again.
#include <fstream>

#include "rig_test.h"

namespace {

class Replay : public RigTest {
 protected:
  std::string File(const std::string& name) const {
    return (rig_.directory.path() / name).string();
  }
};

TEST_F(Replay, PublishesTheRecordsOfAFile) {
  std::string record(552, '\0');
  record.replace(0, 7, "AB12345");
  record[80] = 9;
  std::ofstream(File("records"), std::ios::binary) << record << record.replace(0, 7, "CD67890");
  rig_.StartCamera();
  rig_.StartAgent();
  rig_.camera->Terminate();
  rig_.StartCamera({"--replay", File("records"), "--replay-rate", "20"});
  AwaitPlate("AB12345");
  AwaitPlate("CD67890");
}

TEST_F(Replay, RunsARecordOfLettersOnlyThroughOnce) {
  std::ofstream(File("records"), std::ios::binary) << std::string(552, 'A');
  rig_.StartCamera();
  rig_.StartAgent();
  rig_.camera->Terminate();
  rig_.StartCamera({"--replay", File("records")});
  EXPECT_EQ(Plate(rig_.AwaitMessage("ivs_result")), std::string(552, 'A'));
  EXPECT_TRUE(AgentPrints(": acknowledged"));
  EXPECT_TRUE(
      WaitUntil([this] { return rig_.CameraState()["results"]["undelivered"].asInt() == 0; }));
}

TEST_F(Replay, RefusesAFileWithAPartOfARecord) {
  std::ofstream(File("records"), std::ios::binary) << std::string(553, 'A');
  EXPECT_THROW(rig_.StartCamera({"--replay", File("records")}), std::runtime_error);
  EXPECT_THAT(rig_.camera->Output(), testing::HasSubstr("552"));
}

TEST_F(Replay, TakesWhatWasRecorded) {
  rig_.StartCamera();
  ChildProcess recording({RIG_CAMERA_CTL, "records", File("captured"), "--count", "2"},
                         File("record.log"), rig_.Environment());
  EXPECT_TRUE(WaitUntil([&] {
    rig_.Ctl({"car"});
    return !recording.IsRunning();
  }));
  EXPECT_EQ(recording.exit_code(), 0);
  EXPECT_EQ(std::filesystem::file_size(File("captured")), 2U * 552U);
}

}  // namespace
