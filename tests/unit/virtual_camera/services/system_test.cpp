// The clock and the reboot.
#include <ctime>

#include "desk_camera.h"

namespace virtual_camera {
namespace {

class SystemQueue : public DeskCamera {
 protected:
  Json::Value SetClock(const std::string& datetime) {
    Json::Value request;
    request["type"] = "ss_set_timing";
    request["body"]["datetime"] = datetime;
    return Parsed(Ask("SS_BUS_REQUEST", Compact(request)));
  }

  std::string Now() { return device->clock.NowText(); }

  void Reboot() { Ask("SS_BUS_REQUEST", R"({"type":"reboot_dev"})"); }
};

TEST_F(SystemQueue, SetsTheClockFromATextPaddedWithBlanks) {
  EXPECT_EQ(SetClock("2024- 1- 5  3: 4: 5")["state_code"], 200);
  EXPECT_EQ(Now(), "2024-01-05 03:04:05");
}

TEST_F(SystemQueue, SetsTheClockFromATextPaddedWithZeros) {
  SetClock("2024-11-25 13:14:15");
  EXPECT_EQ(Now(), "2024-11-25 13:14:15");
}

TEST_F(SystemQueue, LetsTheClockRunOn) {
  SetClock("2024-12-31 23:59:59");
  timeline.Advance(2000);
  EXPECT_EQ(Now(), "2025-01-01 00:00:01");
}

TEST_F(SystemQueue, SetsTheTimeThatResultsCarry) {
  SetClock("2030- 6- 7  8: 9:10");
  const IvsRecord record = CarPasses("A");
  EXPECT_EQ(record.year, 2030U);
  EXPECT_EQ(record.month, 6);
  EXPECT_EQ(record.day, 7);
  EXPECT_EQ(record.hour, 8);
  EXPECT_EQ(record.minute, 9);
  EXPECT_EQ(record.second, 10);
  std::tm local{};
  local.tm_year = 130;
  local.tm_mon = 5;
  local.tm_mday = 7;
  local.tm_hour = 8;
  local.tm_min = 9;
  local.tm_sec = 10;
  local.tm_isdst = -1;
  EXPECT_EQ(record.sec, static_cast<uint32_t>(std::mktime(&local)));
}

TEST_F(SystemQueue, KeepsTheClockOverARestart) {
  SetClock("2030- 6- 7  8: 9:10");
  Restart();
  EXPECT_EQ(Now(), "2030-06-07 08:09:10");
}

TEST_F(SystemQueue, MeasuresTheAgeOfResultsByTheHostsClock) {
  CarPasses("A");
  SetClock("2035- 1- 1  0: 0: 0");
  timeline.Advance(3000);
  EXPECT_EQ(device->OldestUndeliveredAge(), 3);
}

TEST_F(SystemQueue, TakesALeapSecondIntoTheNextMinute) {
  SetClock("2024- 1- 5  3: 4:61");
  EXPECT_EQ(Now(), "2024-01-05 03:05:01");
  EXPECT_EQ(SetClock("2024-12-31 23:59:60")["state_code"], 200);
  EXPECT_EQ(Now(), "2025-01-01 00:00:00");
}

TEST_F(SystemQueue, KnowsLeapYears) {
  EXPECT_EQ(SetClock("2024- 2-29  0: 0: 0")["state_code"], 200);
  EXPECT_EQ(SetClock("2023- 2-29  0: 0: 0")["state_code"], 400);
}

TEST_F(SystemQueue, RefusesWhatIsNoTime) {
  const std::string before = Now();
  for (const char* text :
       {"", "soon", "2024-13- 1  0: 0: 0", "2024- 2-31  0: 0: 0", "2024- 0- 1  0: 0: 0",
        "2024- 1- 1 24: 0: 0", "2024- 1- 1  0:60: 0", "2024- 1- 1  0: 0:62", "2024- 1- 1",
        "2024- 1- 1  0: 0: 0 and more", "1869- 1- 1  0: 0: 0", "2024--1- 1  0: 0: 0"}) {
    EXPECT_EQ(SetClock(text)["state_code"], 400) << text;
  }
  EXPECT_EQ(Now(), before);
}

TEST_F(SystemQueue, GoesDownAfterTheAnswerAndComesBackByItself) {
  Reboot();
  EXPECT_TRUE(device->power.IsUp());
  timeline.Advance(Power::kLeadIn_ms);
  EXPECT_FALSE(device->power.IsUp());
  timeline.Advance(2999);
  EXPECT_FALSE(device->power.IsUp());
  timeline.Advance(1);
  EXPECT_TRUE(device->power.IsUp());
}

TEST_F(SystemQueue, RebootsOnceWhenAskedTwice) {
  Reboot();
  Reboot();
  timeline.Advance(60000);
  EXPECT_EQ(device->State()["power"]["reboots"], 1);
  EXPECT_TRUE(device->power.IsUp());
}

TEST_F(SystemQueue, LosesOutputsMovementAndTalkbackInAReboot) {
  device->gpio.Hold(3, 1);
  device->pan_tilt.Control(4, 2);
  device->companions.OpenTalkback("CAM1", 10);
  Reboot();
  timeline.Advance(Power::kLeadIn_ms);
  const Json::Value state = device->State();
  EXPECT_EQ(Compact(state["gpio"]["outputs"]), "[0,0,0,0]");
  EXPECT_FALSE(state["head"]["is_panning"].asBool());
  EXPECT_TRUE(state["talkback"].empty());
}

}  // namespace
}  // namespace virtual_camera
