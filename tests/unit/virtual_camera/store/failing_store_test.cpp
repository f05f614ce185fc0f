// A store that cannot be read or written for a while: SQLite's statements are interrupted,
// its commits are refused, or it may not grow.
#include "desk_camera.h"

namespace virtual_camera {
namespace {

using Lines = std::vector<std::string>;

class FailingStore : public DeskCamera {
 protected:
  FailingStore() {
    CarPasses("FIRST");
    CarPasses("SECOND");
    bus.heard.clear();
  }

  // Every statement fails from now on, those that only read included.
  void Break() {
    sqlite3_progress_handler(
        device->database.handle(), 1, [](void*) { return 1; }, nullptr);
  }
  void Mend() { sqlite3_progress_handler(device->database.handle(), 0, nullptr, nullptr); }

  void RefuseCommits() {
    sqlite3_commit_hook(
        device->database.handle(), [](void*) { return 1; }, nullptr);
  }

  std::string AskStore(const std::string& type) {
    return Ask("BUS_GET_IVS_INFO",
               R"({"type":")" + type + R"(","body":{"plate_id":1,"plateid":1,"count":5,"id":0}})");
  }

  int64_t Undelivered() {
    return Body("BUS_GET_IVS_INFO", R"({"type":"STP_GET_MQTT_OFFLINE_COUNT"})")["offline_count"]
        .asInt64();
  }

  const Lines requests{"get_last_ivs",
                       "get_img_path_by_id",
                       "STP_GET_MQTT_OFFLINE_COUNT",
                       "STP_SELECT_MQTT_OFFLINE_RECORD",
                       "STP_SET_MQTT_OFFLINE_STATUS",
                       "STP_CLEAR_MQTT_OFFLINE"};
};

TEST_F(FailingStore, RefusesEveryRequestWhileItCannotBeReadAndLosesNothing) {
  Break();
  for (const std::string& type : requests) {
    EXPECT_EQ(Parsed(AskStore(type))["state_code"], 400) << type;
  }
  Mend();
  EXPECT_EQ(Undelivered(), 2);
  EXPECT_EQ(AskStore("STP_SELECT_MQTT_OFFLINE_RECORD").size(), 2U * 556U);
}

TEST_F(FailingStore, MarksAndClearsNothingThatIsNotCommitted) {
  RefuseCommits();
  EXPECT_EQ(Parsed(AskStore("STP_SET_MQTT_OFFLINE_STATUS"))["state_code"], 400);
  EXPECT_EQ(Parsed(AskStore("STP_CLEAR_MQTT_OFFLINE"))["state_code"], 400);
  EXPECT_EQ(Undelivered(), 2);
  Restart();
  EXPECT_EQ(Undelivered(), 2);
}

TEST_F(FailingStore, AnnouncesNoCarThatIsNotCommitted) {
  RefuseCommits();
  EXPECT_THROW(CarPasses("THIRD"), std::runtime_error);
  EXPECT_EQ(Heard(), Lines{});
  Restart();
  CarPasses("FOURTH");
  EXPECT_EQ(Heard(), Lines{"plate FOURTH id 3"});
}

TEST_F(FailingStore, KeepsTheWhiteListAsItWas) {
  device->white_list.Replace(Parsed(R"([{"plate":"A"}])"));
  RefuseCommits();
  EXPECT_THROW(device->white_list.Replace(Parsed(R"([{"plate":"B"}])")), std::runtime_error);
  EXPECT_THROW(device->white_list.Delete({"A"}), std::runtime_error);
  EXPECT_THROW(device->white_list.SetCheck(WhiteList::Check::kOpenForListed), std::runtime_error);
  EXPECT_EQ(device->white_list.Count(), 1);
  EXPECT_EQ(device->white_list.check(), WhiteList::Check::kOff);
}

TEST_F(FailingStore, ThatIsFullTakesMoreAsSoonAsThereIsRoom) {
  device->database.Execute("PRAGMA max_page_count = 1");  // no more than it has
  const auto fill = [this] {
    for (int i = 0; i < 100; ++i) {
      CarPasses("CAR");
    }
  };
  EXPECT_THROW(fill(), std::runtime_error);
  const int64_t stored = device->results.totals().results;
  EXPECT_EQ(static_cast<int64_t>(bus.heard.size()), stored - 2);
  device->database.Execute("PRAGMA max_page_count = 100000");
  EXPECT_EQ(CarPasses("CAR").plate_id, stored + 1);
}

}  // namespace
}  // namespace virtual_camera
