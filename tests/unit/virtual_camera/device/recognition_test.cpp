#include <ctime>
#include <fstream>

#include "desk_camera.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

bool IsJpeg(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  char head[3] = {};
  file.read(head, sizeof(head));
  return std::string(head, 3) == "\xff\xd8\xff";
}

class Recognised : public DeskCamera {};

TEST_F(Recognised, CarIsAnnouncedAsAWholeRecord) {
  CarPasses("AB123CD");
  ASSERT_EQ(bus.heard.size(), 1U);
  EXPECT_EQ(bus.heard[0].first, "BUS_SRV_IVS_RESULT");
  EXPECT_EQ(bus.heard[0].second.size(), 552U);
  EXPECT_EQ(Heard(), Lines{"plate AB123CD id 1"});
}

TEST_F(Recognised, CarIsInTheStoreBeforeItIsAnnounced) {
  struct LookingBus : FakeBus {
    bool Announce(const std::string& topic, const std::string& body) override {
      stored_then = look();
      return FakeBus::Announce(topic, body);
    }
    std::function<int64_t()> look;
    int64_t stored_then = 0;
  } looking;
  TestDirectory other;
  options.data = other.path();
  Device watched(options, {timeline, looking, key_values, lines, nullptr});
  // Through a connection of its own, which sees only what is committed.
  Database second(other.path() + "/camera.db");
  looking.look = [&second] {
    Statement count(second, "SELECT count(*) FROM results");
    return count.Step() ? count.Int(0) : -1;
  };
  watched.recognition.CarPasses(Trigger::kVideo, "AB123CD");
  EXPECT_EQ(looking.stored_then, 1);
}

TEST_F(Recognised, CarHasTwoPictures) {
  const IvsRecord record = CarPasses("AB123CD");
  EXPECT_TRUE(IsJpeg(GetText(record.full_path)));
  EXPECT_TRUE(IsJpeg(GetText(record.clip_path)));
  EXPECT_NE(GetText(record.full_path), GetText(record.clip_path));
}

TEST_F(Recognised, PlateLiesInTheCarAndTheCarInThePicture) {
  options.pictures.width = 640;
  Restart();
  for (int i = 0; i < 50; ++i) {
    const IvsRecord record = device->recognition.CarPasses(Trigger::kVideo, std::nullopt);
    EXPECT_GE(record.car.left, 0);
    EXPECT_LT(record.car.left, record.plate.left);
    EXPECT_LT(record.plate.left, record.plate.right);
    EXPECT_LT(record.plate.right, record.car.right);
    EXPECT_LT(record.car.right, 640);
    EXPECT_LT(record.plate.top, record.plate.bottom);
    EXPECT_LT(record.car.bottom, 360);
  }
}

TEST_F(Recognised, CarLooksTheSameEachTime) {
  const IvsRecord first = CarPasses("AB123CD");
  const IvsRecord again = CarPasses("AB123CD");
  EXPECT_EQ(first.car_color, again.car_color);
  EXPECT_EQ(first.brand, again.brand);
  EXPECT_EQ(GetText(first.color_value), GetText(again.color_value));
}

TEST_F(Recognised, CarsOfOneSeedAreTheSame) {
  const auto plate = [this] {
    return GetText(device->recognition.CarPasses(Trigger::kVideo, std::nullopt).license);
  };
  const Lines first{plate(), plate(), plate()};
  Restart();
  EXPECT_EQ((Lines{plate(), plate(), plate()}), first);
  options.seed = 2;
  Restart();
  EXPECT_NE((Lines{plate(), plate(), plate()}), first);
}

TEST_F(Recognised, SomePlatesComeAgain) {
  std::map<std::string, int> seen;
  for (int i = 0; i < 200; ++i) {
    ++seen[GetText(device->recognition.CarPasses(Trigger::kVideo, std::nullopt).license)];
  }
  EXPECT_LT(seen.size(), 200U);
  EXPECT_GT(seen.size(), 50U);
}

TEST_F(Recognised, PlateThatDoesNotFitIsRefused) {
  EXPECT_THROW(CarPasses(""), RequestError);
  EXPECT_THROW(CarPasses("0123456789ABCDEF"), RequestError);
  CarPasses("0123456789ABCDE");
  EXPECT_EQ(Heard(), Lines{"plate 0123456789ABCDE id 1"});
}

TEST_F(Recognised, TimeIsTheCamerasLocalTime) {
  timeline.Advance(250);
  const IvsRecord record = CarPasses("AB123CD");
  const std::time_t sec = 1700000000;
  std::tm local{};
  localtime_r(&sec, &local);
  EXPECT_EQ(record.sec, 1700000000U);
  EXPECT_EQ(record.usec, 250000U);
  EXPECT_EQ(record.year, static_cast<uint32_t>(local.tm_year + 1900));
  EXPECT_EQ(record.month, local.tm_mon + 1);
  EXPECT_EQ(record.day, local.tm_mday);
  EXPECT_EQ(record.hour, local.tm_hour);
  EXPECT_EQ(record.minute, local.tm_min);
  EXPECT_EQ(record.second, local.tm_sec);
}

TEST_F(Recognised, CarIsKeptUndeliveredWhileTheBusIsAway) {
  bus.is_away = true;
  CarPasses("AB123CD");
  EXPECT_EQ(device->results.totals().undelivered, 1);
  EXPECT_EQ(device->State()["announced"]["BUS_SRV_IVS_RESULT"]["missed"], 1);
}

TEST_F(Recognised, CarThatCannotBeStoredIsNotAnnouncedAndLeavesNoPictures) {
  device->database.Execute("DROP TABLE results");
  EXPECT_THROW(CarPasses("AB123CD"), std::runtime_error);
  EXPECT_EQ(Heard(), Lines{});
  EXPECT_TRUE(fs::is_empty(directory.path() + "/pictures"));
}

TEST_F(Recognised, CarIsNotLostWhereTheWhiteListCannotBeRead) {
  device->white_list.SetCheck(WhiteList::Check::kOpenForListed);
  device->database.Execute("DROP TABLE white_list");
  EXPECT_EQ(CarPasses("AB123CD").plate_id, 1U);
  EXPECT_EQ(Heard(), Lines{"plate AB123CD id 1"});
  EXPECT_EQ(device->State()["results"]["lost"], 0);
}

TEST_F(Recognised, PicturesGoWithTheirResult) {
  options.retention.results = 2;
  Restart();
  const IvsRecord first = CarPasses("A");
  CarPasses("B");
  const IvsRecord third = CarPasses("C");
  EXPECT_FALSE(fs::exists(GetText(first.full_path)));
  EXPECT_FALSE(fs::exists(GetText(first.clip_path)));
  EXPECT_TRUE(fs::exists(GetText(third.full_path)));
}

TEST_F(Recognised, PicturesWithoutAResultAreRemovedAtTheNextStart) {
  const IvsRecord record = CarPasses("A");
  std::ofstream(directory.path() + "/pictures/2_full.jpg") << "left by a kill";
  std::ofstream(directory.path() + "/pictures/holiday.jpg") << "a person's own";
  std::ofstream(directory.path() + "/pictures/2_holiday.jpg") << "another";
  Restart();
  EXPECT_FALSE(fs::exists(directory.path() + "/pictures/2_full.jpg"));
  EXPECT_TRUE(fs::exists(directory.path() + "/pictures/holiday.jpg"));
  EXPECT_TRUE(fs::exists(directory.path() + "/pictures/2_holiday.jpg"));
  EXPECT_TRUE(fs::exists(GetText(record.full_path)));
}

std::string RecordWithId(uint32_t id) {
  std::string bytes(552, 'r');
  std::memcpy(&bytes[80], &id, sizeof(id));
  bytes[7] = '\0';
  return bytes;
}

TEST_F(Recognised, ReplayKeepsItsBytesAndIdAndIsStored) {
  const std::string record = RecordWithId(700);
  EXPECT_EQ(device->recognition.Replay(record), 700U);
  EXPECT_EQ(bus.heard[0].second, record);
  EXPECT_EQ(device->results.Find(700), record);
  CarPasses("AB123CD");
  EXPECT_EQ(Heard(), (Lines{"plate rrrrrrr id 700", "plate AB123CD id 701"}));
}

TEST_F(Recognised, ReplayOfAGivenIdGetsTheNextOne) {
  CarPasses("AB123CD");
  EXPECT_EQ(device->recognition.Replay(RecordWithId(1)), 2U);
  EXPECT_EQ(device->recognition.Replay(RecordWithId(0)), 3U);
  EXPECT_EQ(Heard(), (Lines{"plate AB123CD id 1", "plate rrrrrrr id 2", "plate rrrrrrr id 3"}));
}

TEST_F(Recognised, ReplayCannotUseUpTheIds) {
  EXPECT_EQ(device->recognition.Replay(RecordWithId(0x7FFFFFFF)), 0x7FFFFFFFU);
  EXPECT_EQ(device->recognition.Replay(RecordWithId(0xFFFFFFFF)), 0x80000000U);
}

TEST_F(Recognised, ReplayNeverHasSomeoneElsesFileRemoved) {
  const std::string precious = directory.path() + "/precious.jpg";
  std::ofstream(precious) << "not ours";
  std::string record = RecordWithId(5);
  std::memcpy(&record[296], precious.c_str(), precious.size() + 1);
  options.retention.results = 1;
  Restart();
  device->recognition.Replay(record);
  CarPasses("A");
  EXPECT_FALSE(device->results.Find(5));
  EXPECT_TRUE(fs::exists(precious));
}

TEST(DataDirectoryOfACamera, ThatIsTooLongForARecordIsRefused) {
  const TestDirectory directory;
  FakeTimeline timeline;
  FakeBus bus;
  FakeKeyValues key_values;
  FakeLines lines;
  DeviceOptions options;
  options.data = directory.path() + "/" + std::string(100, 'd');
  try {
    Device device(options, {timeline, bus, key_values, lines});
    FAIL() << "accepted";
  } catch (const std::runtime_error& error) {
    EXPECT_NE(std::string(error.what()).find("path is too long"), std::string::npos);
  }
}

TEST_F(Recognised, DirectoryIsNotSharedWithAnotherCamera) {
  EXPECT_THROW(Device(options, {timeline, bus, key_values, lines}), std::runtime_error);
}

}  // namespace
}  // namespace virtual_camera
