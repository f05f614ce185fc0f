// Outputs through their two queues, inputs through their topic.
#include "desk_camera.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {
namespace {

class GpioQueues : public DeskCamera {
 protected:
  Json::Value Set(int32_t output, int32_t value, int32_t delay_ms) {
    return Parsed(Ask("EVS_GPIO_CONTROL", Words({output, value, delay_ms})));
  }

  int Level(int output) {
    return Body("EVS_BUS_REQUEST", R"({"type":"evs_get_gpioout","body":{"source":)" +
                                       std::to_string(output) + "}}")["gpio_out_status"]
        .asInt();
  }
};

TEST_F(GpioQueues, HoldALevelUntilAnother) {
  Set(2, 1, 50);
  timeline.Advance(60000);
  EXPECT_EQ(Level(2), 1);
  Set(2, 0, 50);
  EXPECT_EQ(Level(2), 0);
}

TEST_F(GpioQueues, PulseForTheDelay) {
  Set(1, 2, 100);
  timeline.Advance(99);
  EXPECT_EQ(Level(1), 1);
  timeline.Advance(1);
  EXPECT_EQ(Level(1), 0);
}

TEST_F(GpioQueues, ProlongAPulse) {
  Set(1, 2, 100);
  timeline.Advance(80);
  Set(1, 2, 100);
  timeline.Advance(80);
  EXPECT_EQ(Level(1), 1);
  timeline.Advance(20);
  EXPECT_EQ(Level(1), 0);
}

TEST_F(GpioQueues, HoldAgainstTheEndOfAnEarlierPulse) {
  Set(1, 2, 100);
  Set(1, 1, 0);
  timeline.Advance(200);
  EXPECT_EQ(Level(1), 1);
}

TEST_F(GpioQueues, PulseWithoutALengthIsOverAtOnce) {
  Set(1, 2, -5);
  EXPECT_EQ(Level(1), 1);
  timeline.Advance(1);
  EXPECT_EQ(Level(1), 0);
}

TEST_F(GpioQueues, KeepOutputsApart) {
  Set(0, 1, 0);
  EXPECT_EQ(Level(0), 1);
  EXPECT_EQ(Level(1), 0);
}

TEST_F(GpioQueues, AnswerWithTheOutputToo) {
  EXPECT_EQ(Ask("EVS_BUS_REQUEST", R"({"type":"evs_get_gpioout","body":{"source":3}})"),
            R"({"body":{"gpio_out_status":0,"source":3},"state_code":200})");
}

TEST_F(GpioQueues, RefuseOutputsAndValuesThatThereAreNot) {
  EXPECT_EQ(Set(4, 1, 0)["state_code"], 400);
  EXPECT_EQ(Set(-1, 1, 0)["state_code"], 400);
  EXPECT_EQ(Set(0, 3, 0)["state_code"], 400);
  EXPECT_EQ(Parsed(Ask("EVS_GPIO_CONTROL", Words({0, 1})))["state_code"], 400);
  EXPECT_EQ(Level(0), 0);
}

TEST_F(GpioQueues, AnnounceAnInput) {
  device->gpio.SetInput(2, 1);
  EXPECT_EQ(
      Heard(),
      (std::vector<std::string>{R"(EVT_SRV_EXTERNAL_TRIGGER {"body":{"flag":1,"source":2}})"}));
  EXPECT_EQ(Compact(device->State()["gpio"]["inputs"]), "[0,0,1,0]");
}

TEST_F(GpioQueues, RefuseAnInputThatThereIsNot) {
  EXPECT_THROW(device->gpio.SetInput(4, 1), RequestError);
  EXPECT_THROW(device->gpio.SetInput(0, 2), RequestError);
  EXPECT_TRUE(Heard().empty());
}

}  // namespace
}  // namespace virtual_camera
