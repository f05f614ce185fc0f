// A file system of a few megabytes under the running camera, filled up and emptied again.
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "platform/nats_handle.h"
#include "platform/nats_link.h"
#include "rig_test.h"

namespace {

namespace fs = std::filesystem;

class FullDisk : public RigTest {
 protected:
  FullDisk() : data_(rig_.directory.path() / "camera") {}

  ~FullDisk() override {
    rig_.camera.reset();
    if (is_mounted_) {
      umount2(data_.c_str(), MNT_DETACH);
    }
  }

  void SetUp() override {
    fs::create_directory(data_);
    is_mounted_ = mount("tmpfs", data_.c_str(), "tmpfs", 0, "size=4m") == 0;
    if (!is_mounted_) {
      GTEST_SKIP() << "no small file system can be mounted here: " << std::strerror(errno);
    }
  }

  // Takes every byte that is left.
  void FillUp() {
    std::ofstream filler(data_ / "filler", std::ios::binary);
    while (filler.write("0123456789abcdef", 16).flush()) {
    }
  }

  void MakeRoom() { fs::remove(data_ / "filler"); }

  Json::Value Results() { return rig_.CameraState()["results"]; }

  bool CarPasses() {
    try {
      rig_.Ctl({"car"});
      return true;
    } catch (const std::runtime_error&) {
      return false;
    }
  }

  // As the plug-in asks for it. @return the answer's code.
  int Confirm(int plate_id) {
    const auto link =
        tarvex::NatsLink::Connect(tarvex::SocketAddress("127.0.0.1", rig_.bus.port()), "test");
    const std::string request =
        R"({"type":"STP_SET_MQTT_OFFLINE_STATUS","body":{"push_status":0,"plate_id":)" +
        std::to_string(plate_id) + "}}";
    natsMsg* answer = nullptr;
    EXPECT_EQ(natsConnection_RequestString(&answer, link->get(), "BUS_GET_IVS_INFO",
                                           request.c_str(), 5000),
              NATS_OK);
    const tarvex::NatsMessage owner(answer);
    return answer == nullptr ? 0 : ParseJson(natsMsg_GetData(answer))["state_code"].asInt();
  }

 private:
  const fs::path data_;
  bool is_mounted_ = false;
};

TEST_F(FullDisk, CostsCarsWhichAreCountedAndNotAnnouncedUntilThereIsRoom) {
  rig_.StartCamera({"--cars-per-minute", "1200", "--keep-results", "50"});
  ASSERT_TRUE(WaitUntil([this] { return Results()["recognised"].asInt() > 5; }));
  FillUp();
  ASSERT_TRUE(WaitUntil([this] { return Results()["lost"].asInt() > 20; }));
  MakeRoom();
  const int recognised = Results()["recognised"].asInt();
  EXPECT_TRUE(WaitUntil([&] { return Results()["recognised"].asInt() > recognised + 60; }));
  const Json::Value state = rig_.CameraState();
  EXPECT_EQ(state["announced"]["BUS_SRV_IVS_RESULT"]["announced"], state["results"]["recognised"]);
  EXPECT_EQ(state["results"]["stored"].asInt(), 50);
}

TEST_F(FullDisk, KeepsWhatWasAnnouncedThroughAKill) {
  rig_.StartCamera();
  while (CarPasses()) {
    if (Results()["recognised"].asInt() == 5) {
      FillUp();
    }
  }
  const int announced = Results()["recognised"].asInt();
  rig_.camera->Kill();
  MakeRoom();
  rig_.StartCamera();
  EXPECT_EQ(Results()["stored"].asInt(), announced);
  EXPECT_TRUE(CarPasses());
}

TEST_F(FullDisk, HasNothingMarkedAsDeliveredThatTheStoreCouldNotTake) {
  rig_.StartCamera();
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(CarPasses());
  }
  FillUp();
  EXPECT_EQ(Confirm(1), 400);
  EXPECT_EQ(Results()["undelivered"].asInt(), 5);
  rig_.camera->Kill();
  MakeRoom();
  rig_.StartCamera();
  EXPECT_EQ(Results()["undelivered"].asInt(), 5);
  EXPECT_EQ(Confirm(1), 200);
  EXPECT_EQ(Results()["undelivered"].asInt(), 4);
}

TEST_F(FullDisk, EndsAStartWithOneLineOrLetsItServe) {
  rig_.StartCamera();
  EXPECT_TRUE(CarPasses());
  EXPECT_TRUE(rig_.camera->Terminate());
  FillUp();
  try {
    rig_.StartCamera();
  } catch (const std::runtime_error&) {
    EXPECT_EQ(rig_.camera->exit_code(), 1);
  }
  rig_.camera->Kill();
  MakeRoom();
  rig_.StartCamera();
  EXPECT_EQ(Results()["stored"].asInt(), 1);
}

}  // namespace
