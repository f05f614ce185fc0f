// A file system of a few megabytes under the agent's picture directory, full and not.
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "rig_test.h"

namespace {

namespace fs = std::filesystem;

class FullPictureDisk : public RigTest {
 protected:
  FullPictureDisk() : disk_(rig_.directory.path() / "pictures") {}

  ~FullPictureDisk() override {
    rig_.agent.reset();
    if (is_mounted_) {
      umount2(disk_.c_str(), MNT_DETACH);
    }
  }

  void SetUp() override {
    fs::create_directory(disk_);
    is_mounted_ = mount("tmpfs", disk_.c_str(), "tmpfs", 0, "size=1m") == 0;
    if (!is_mounted_) {
      GTEST_SKIP() << "no small file system can be mounted here: " << std::strerror(errno);
    }
    rig_.StartCamera({"--picture-width", "640"});
    rig_.StartAgent();
  }

  /// Takes every byte that is left.
  void FillUp() {
    std::ofstream filler(disk_ / "filler", std::ios::binary);
    while (filler.write("0123456789abcdef", 16).flush()) {
    }
  }

  std::string PictureOf(const std::string& plate) {
    return FromBase64(PlateResult(AwaitPlate(plate))["imagePath"].asString());
  }

  const fs::path disk_;
  bool is_mounted_ = false;
};

TEST_F(FullPictureDisk, KeepsTheNewestPictures) {
  std::string url;
  for (int i = 100; i < 130; ++i) {
    const std::string plate = "CAR" + std::to_string(i);
    rig_.Ctl({"car", plate});
    url = PictureOf(plate);
    ASSERT_TRUE(fs::exists(url.substr(std::string("file://").size()))) << url;
  }
  EXPECT_EQ(rig_.AgentStatus()["counters"]["pictures_failed"].asInt(), 0);
}

TEST_F(FullPictureDisk, OfOthersCostsPicturesButNoResult) {
  FillUp();
  rig_.Ctl({"car", "NOROOM1"});
  EXPECT_EQ(PictureOf("NOROOM1"), "");
  EXPECT_GE(rig_.AgentStatus()["counters"]["pictures_failed"].asInt(), 1);
  EXPECT_TRUE(
      WaitUntil([this] { return rig_.CameraState()["results"]["undelivered"].asInt() == 0; }));
  fs::remove(disk_ / "filler");
  rig_.Ctl({"car", "ROOM001"});
  EXPECT_NE(PictureOf("ROOM001"), "");
}

}  // namespace
