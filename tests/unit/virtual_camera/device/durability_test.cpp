// In which order a result and its pictures reach the disk, and what comes of a disk that
// fails: the system's fsync and fdatasync are watched, and fail on demand.
#include <cerrno>

#include <sys/syscall.h>
#include <unistd.h>

#include "desk_camera.h"

namespace {

// Of the test that runs; null between tests. The device under test has one thread.
std::vector<std::string>* synced = nullptr;
std::string failing;  // the file name whose sync fails; empty: none

int Sync(long call, int fd) {
  if (synced != nullptr) {
    std::error_code ignored;
    const std::string name =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), ignored).filename();
    if (name == failing) {
      errno = EIO;
      return -1;
    }
    synced->push_back("synced " + name);
  }
  return static_cast<int>(syscall(call, fd));
}

}  // namespace

// Take the place of the C library's.
extern "C" int fsync(int fd) { return Sync(SYS_fsync, fd); }
extern "C" int fdatasync(int fd) { return Sync(SYS_fdatasync, fd); }

namespace virtual_camera {
namespace {

using Lines = std::vector<std::string>;

class Durable : public DeskCamera {
 protected:
  struct NotingBus : FakeBus {
    bool Announce(const std::string& topic, const std::string& body) override {
      events.push_back("announced " + topic);
      return FakeBus::Announce(topic, body);
    }
    Lines events;
  };

  Durable() : watched_options_(options) {
    watched_options_.data = other.path();
    watched = std::make_unique<Device>(watched_options_,
                                       Surroundings{timeline, noting, key_values, lines});
    synced = &noting.events;
  }
  ~Durable() override {
    synced = nullptr;
    failing.clear();
  }

  TestDirectory other;
  DeviceOptions watched_options_;
  NotingBus noting;
  std::unique_ptr<Device> watched;
};

TEST_F(Durable, PicturesAndTheirDirectoryAreOnTheDiskBeforeTheResultAndThatBeforeItIsAnnounced) {
  watched->recognition.CarPasses(Trigger::kVideo, "AB123CD");
  EXPECT_EQ(noting.events, (Lines{"synced unfinished", "synced unfinished", "synced pictures",
                                  "synced camera.db-wal", "announced BUS_SRV_IVS_RESULT"}));
}

TEST_F(Durable, PicturesOfALaneEventAreOnTheDiskBeforeItIsAnnounced) {
  watched->lane_control.Switch(Parsed(R"([{"event":"person_stay","enable":1}])"));
  noting.events.clear();
  watched->lane_control.Stay(LaneControl::Kind::kPerson, std::nullopt);
  EXPECT_EQ(noting.events, (Lines{"synced camera.db-wal", "synced unfinished", "synced unfinished",
                                  "synced lane", "announced BUS_SRV_LANECTRL_RESULT"}));
}

TEST_F(Durable, PictureThatIsNotOnTheDiskNeverGetsItsName) {
  failing = "unfinished";
  EXPECT_THROW(watched->recognition.CarPasses(Trigger::kVideo, "AB123CD"), std::runtime_error);
  EXPECT_TRUE(std::filesystem::is_empty(other.path() + "/pictures"));
  EXPECT_EQ(noting.events, Lines{});
}

TEST_F(Durable, ResultWhosePicturesMayBeLostWithThePowerIsNeitherStoredNorAnnounced) {
  failing = "pictures";
  EXPECT_THROW(watched->recognition.CarPasses(Trigger::kVideo, "AB123CD"), std::runtime_error);
  EXPECT_EQ(watched->results.totals().results, 0);
  EXPECT_EQ(noting.heard.size(), 0U);
}

TEST_F(Durable, ResultThatIsNotOnTheDiskIsNeitherStoredNorAnnounced) {
  failing = "camera.db-wal";
  EXPECT_THROW(watched->recognition.CarPasses(Trigger::kVideo, "AB123CD"), std::runtime_error);
  EXPECT_EQ(watched->results.totals().results, 0);
  EXPECT_EQ(noting.heard.size(), 0U);
  failing.clear();
  watched->recognition.CarPasses(Trigger::kVideo, "AB123CD");
  EXPECT_EQ(watched->results.totals().results, 1);
}

TEST_F(Durable, MarkOfADeliveredResultWaitsForNoDisk) {
  watched->recognition.CarPasses(Trigger::kVideo, "AB123CD");
  noting.events.clear();
  EXPECT_TRUE(watched->results.MarkDelivered(1));
  EXPECT_EQ(noting.events, Lines{});
  EXPECT_EQ(watched->results.SelectUndelivered(1, 10).size(), 0U);
}

TEST_F(Durable, ResultAfterAMarkIsOnTheDiskBeforeItIsAnnounced) {
  watched->recognition.CarPasses(Trigger::kVideo, "AB123CD");
  watched->results.MarkDelivered(1);
  noting.events.clear();
  watched->recognition.CarPasses(Trigger::kVideo, "AB124CD");
  EXPECT_EQ(noting.events, (Lines{"synced unfinished", "synced unfinished", "synced pictures",
                                  "synced camera.db-wal", "announced BUS_SRV_IVS_RESULT"}));
}

TEST_F(Durable, LostCarsAreCounted) {
  failing = "camera.db-wal";
  EXPECT_THROW(watched->recognition.CarPasses(Trigger::kVideo, "A"), std::runtime_error);
  EXPECT_THROW(watched->recognition.Replay(std::string(552, 'r')), std::runtime_error);
  EXPECT_EQ(watched->State()["results"]["lost"], 2);
}

}  // namespace
}  // namespace virtual_camera
