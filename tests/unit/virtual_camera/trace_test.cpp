// What a camera tells of its results and messages while it is traced.
#include "platform/trace.h"

#include "desk_camera.h"

namespace virtual_camera {
namespace {

using Lines = std::vector<std::string>;

class TracedCamera : public DeskCamera {
 protected:
  TracedCamera() {
    trace = &told_;
    Restart();
  }

  /// The events since the last call, without the members that all have but "event".
  Lines Told() {
    Lines events;
    for (const std::string& text : std::exchange(texts_, {})) {
      Json::Value event = Parsed(text);
      for (const char* member : {"by", "sn", "at_us"}) {
        Json::Value removed;
        EXPECT_TRUE(event.removeMember(member, &removed)) << member;
      }
      events.push_back(Compact(event));
    }
    return events;
  }

  Lines texts_;
  const tarvex::Trace told_{"virtual_camera", "CAM1",
                            [this](std::string text) { texts_.push_back(std::move(text)); }};
};

TEST_F(TracedCamera, TellsThatAResultIsStoredAndThenAnnounced) {
  CarPasses("AB123CD");
  EXPECT_EQ(Told(), (Lines{R"({"event":"stored","plate_id":1})",
                           R"({"event":"announced","plate_id":1,"topic":"BUS_SRV_IVS_RESULT"})"}));
}

TEST_F(TracedCamera, TellsOfOtherMessagesToo) {
  device->gpio.SetInput(1, 1);
  EXPECT_EQ(Told(), Lines{R"({"event":"announced","topic":"EVT_SRV_EXTERNAL_TRIGGER"})"});
}

TEST_F(TracedCamera, TellsNothingOfAMessageThatNobodyCanHear) {
  bus.is_away = true;
  CarPasses("AB123CD");
  EXPECT_EQ(Told(), Lines{R"({"event":"stored","plate_id":1})"});
}

TEST_F(TracedCamera, TellsOnceThatAResultIsDelivered) {
  CarPasses("AB123CD");
  Told();
  for (int i = 0; i < 2; ++i) {
    Ask("BUS_GET_IVS_INFO", R"({"type":"STP_SET_MQTT_OFFLINE_STATUS","body":{"plate_id":1}})");
  }
  EXPECT_EQ(Told(), Lines{R"({"event":"delivered","plate_id":1})"});
}

TEST_F(TracedCamera, TellsHowManyResultsWereCleared) {
  CarPasses("AB123CD");
  CarPasses("AB123CD");
  Told();
  Ask("BUS_GET_IVS_INFO", R"({"type":"STP_CLEAR_MQTT_OFFLINE"})");
  EXPECT_EQ(Told(), Lines{R"({"count":2,"event":"cleared"})"});
}

}  // namespace
}  // namespace virtual_camera
