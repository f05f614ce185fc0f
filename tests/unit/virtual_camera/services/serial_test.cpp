// RS-485: the queue for what goes out, the topic for what comes in.
#include "desk_camera.h"

namespace virtual_camera {
namespace {

class Serial : public DeskCamera {
 protected:
  Json::Value Write(int32_t header, int32_t channel, const std::string& bytes) {
    return Parsed(Ask("EVS_RS485_WRITE", Words({header, channel}) + bytes));
  }
};

TEST_F(Serial, WritesBytesToTheWireOfTheirChannel) {
  const std::string bytes("a\0\xff\n", 4);
  EXPECT_EQ(Write(111, 1, bytes)["body"]["written"], 4);
  EXPECT_EQ(lines.wire[1], bytes);
  EXPECT_EQ(lines.wire[0], "");
}

TEST_F(Serial, TakesUpToTheLongestPacket) {
  EXPECT_EQ(Write(111, 0, std::string(1016, 'x'))["state_code"], 200);
  EXPECT_EQ(Write(111, 0, std::string(1017, 'x'))["state_code"], 400);
  EXPECT_EQ(lines.wire[0].size(), 1016U);
}

TEST_F(Serial, RefusesAnotherHeaderAnotherChannelAndNothing) {
  EXPECT_EQ(Write(112, 0, "x")["state_code"], 400);
  EXPECT_EQ(Write(111, 2, "x")["state_code"], 400);
  EXPECT_EQ(Write(111, -1, "x")["state_code"], 400);
  EXPECT_EQ(Write(111, 0, "")["state_code"], 400);
  EXPECT_TRUE(lines.wire.empty());
}

TEST_F(Serial, DropsAndCountsWhatTheWireHasNoRoomFor) {
  lines.room = 3;
  EXPECT_EQ(Write(111, 0, "abcdef")["body"]["written"], 3);
  const Json::Value line = device->State()["rs485"][0];
  EXPECT_EQ(line["written"], 3);
  EXPECT_EQ(line["dropped"], 3);
}

TEST_F(Serial, AnnouncesWhatIsTypedInBase64) {
  lines.type(1, std::string("hi\0\n", 4));
  EXPECT_EQ(Heard(),
            (std::vector<std::string>{
                R"(EVS_RS485_READ {"body":{"data_len":4,"rs485_data":"aGkACg==","source":1}})"}));
}

TEST_F(Serial, HearsNothingDuringAReboot) {
  device->power.Reboot();
  timeline.Advance(Power::kLeadIn_ms);
  lines.type(0, "x");
  EXPECT_TRUE(Heard().empty());
}

}  // namespace
}  // namespace virtual_camera
