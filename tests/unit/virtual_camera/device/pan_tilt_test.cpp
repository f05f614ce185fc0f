#include "desk_camera.h"

namespace virtual_camera {
namespace {

class Head : public DeskCamera {
 protected:
  Json::Value Move(int dir, int degree = 2) {
    Json::Value request;
    request["type"] = "set_cloud_ctrl";
    request["module"] = "BUS_REQUEST_MESSAGE";
    request["body"]["dir"] = dir;
    request["body"]["degree"] = degree;
    return Parsed(Ask("BUS_REQUEST_MESSAGE", Compact(request)));
  }

  double Pan() { return device->pan_tilt.State()["pan"].asDouble(); }
  double Tilt() { return device->pan_tilt.State()["tilt"].asDouble(); }
};

TEST_F(Head, TurnsLeftUntilItIsStopped) {
  Move(2);
  timeline.Advance(500);
  EXPECT_DOUBLE_EQ(Pan(), -10);
  Move(8, 0);
  timeline.Advance(5000);
  EXPECT_DOUBLE_EQ(Pan(), -10);
  EXPECT_EQ(device->pan_tilt.State()["last_pan_move_ms"], 500);
}

TEST_F(Head, TurnsRightUpAndDown) {
  Move(4);
  timeline.Advance(1000);
  EXPECT_DOUBLE_EQ(Pan(), 20);
  Move(16);
  timeline.Advance(1000);
  EXPECT_DOUBLE_EQ(Tilt(), 20);
  Move(32);
  timeline.Advance(2000);
  EXPECT_DOUBLE_EQ(Tilt(), -20);
}

TEST_F(Head, StopsOneAxisAndNotTheOther) {
  Move(4);
  Move(16);
  timeline.Advance(500);
  Move(8, 0);
  timeline.Advance(500);
  EXPECT_DOUBLE_EQ(Pan(), 10);
  EXPECT_DOUBLE_EQ(Tilt(), 20);
  Move(64, 0);
  timeline.Advance(500);
  EXPECT_DOUBLE_EQ(Tilt(), 20);
  EXPECT_EQ(device->pan_tilt.State()["last_tilt_move_ms"], 1000);
}

TEST_F(Head, RestsAtItsLimits) {
  Move(4, 10);
  timeline.Advance(60000);
  EXPECT_DOUBLE_EQ(Pan(), 170);
  EXPECT_FALSE(device->pan_tilt.State()["is_panning"].asBool());
  Move(32, 10);
  timeline.Advance(60000);
  EXPECT_DOUBLE_EQ(Tilt(), -30);
  Move(16, 10);
  timeline.Advance(60000);
  EXPECT_DOUBLE_EQ(Tilt(), 90);
}

TEST_F(Head, CountsAMoveOnlyUntilItsLimit) {
  Move(4, 10);
  timeline.Advance(60000);
  Move(8, 0);
  EXPECT_EQ(device->pan_tilt.State()["last_pan_move_ms"], 1700);
}

TEST_F(Head, ComesBackFromALimit) {
  Move(4, 10);
  timeline.Advance(60000);
  Move(2);
  timeline.Advance(1000);
  EXPECT_DOUBLE_EQ(Pan(), 150);
}

TEST_F(Head, GoesOnFromWhereANewMoveFindsIt) {
  Move(4);
  timeline.Advance(500);
  Move(2);
  timeline.Advance(1000);
  EXPECT_DOUBLE_EQ(Pan(), -10);
}

TEST_F(Head, RefusesWhatItCannotDo) {
  EXPECT_EQ(Move(3)["state_code"], 400);
  EXPECT_EQ(Move(2, 11)["state_code"], 400);
  EXPECT_EQ(Move(2, -1)["state_code"], 400);
  EXPECT_EQ(Parsed(Ask("BUS_REQUEST_MESSAGE",
                       R"({"type":"set_cloud_ctrl","body":{"dir":2,"degree":2}})"))["state_code"],
            400);
  timeline.Advance(1000);
  EXPECT_DOUBLE_EQ(Pan(), 0);
}

TEST_F(Head, TakesTheSceneWithIt) {
  options.pictures.width = 640;
  Restart();
  Traffic traffic(1);
  const Car car = traffic.WithPlate("AB123CD");
  const PixelRect ahead = device->scene.PlaceOf(car, 0, 0).car;
  const PixelRect from_the_left = device->scene.PlaceOf(car, -5, 0).car;
  const PixelRect from_above = device->scene.PlaceOf(car, 0, 5).car;
  EXPECT_GT(from_the_left.left, ahead.left);
  EXPECT_GT(from_above.top, ahead.top);
}

}  // namespace
}  // namespace virtual_camera
