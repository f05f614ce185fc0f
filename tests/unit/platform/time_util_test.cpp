#include "tarvex/time_util.h"

#include <ctime>
#include <limits>

#include <gtest/gtest.h>

#include "scoped_environment.h"

namespace {

using tarvex::XTimeUtil;

/// A place two hours east of Greenwich, where summer changes nothing.
class DeviceTime : public testing::Test {
 protected:
  DeviceTime() { tzset(); }

  ScopedEnvironment zone_{"TZ", "TEST-2"};
};

TEST_F(DeviceTime, CountsSecondsSince1970) {
  const auto before = static_cast<unsigned long long>(std::time(nullptr));
  const unsigned long long now = XTimeUtil::TimeSecond();
  EXPECT_GE(now, before);
  EXPECT_LE(now, static_cast<unsigned long long>(std::time(nullptr)));
}

TEST_F(DeviceTime, IsWrittenAsLocalTime) {
  EXPECT_EQ(XTimeUtil::TimeLocalToString(0), "1970-01-01 02:00:00");
  EXPECT_EQ(XTimeUtil::TimeLocalToString(1769896799), "2026-01-31 23:59:59");
}

TEST_F(DeviceTime, IsSplitIntoCalendarFields) {
  tarvex::_TimeS time{};
  XTimeUtil::TimeLocalMake(&time, 1769896799);
  EXPECT_EQ(time.year, 2026);
  EXPECT_EQ(time.month, 1);
  EXPECT_EQ(time.day, 31);
  EXPECT_EQ(time.hour, 23);
  EXPECT_EQ(time.minute, 59);
  EXPECT_EQ(time.second, 59);
}

TEST_F(DeviceTime, IsNowWhereZeroIsSplit) {
  const std::string before = XTimeUtil::TimeLocalToString(XTimeUtil::TimeSecond());
  tarvex::_TimeS time{};
  XTimeUtil::TimeLocalMake(&time, 0);
  const std::string after = XTimeUtil::TimeLocalToString(XTimeUtil::TimeSecond());
  EXPECT_GE(time.year, std::stoi(before.substr(0, 4)));
  EXPECT_LE(time.year, std::stoi(after.substr(0, 4)));
  EXPECT_GE(time.month, 1);
}

TEST_F(DeviceTime, SurvivesWhatTheCalendarDoesNotReach) {
  EXPECT_EQ(XTimeUtil::TimeLocalToString(std::numeric_limits<long long>::max()),
            "1900-01-00 00:00:00");
}

}  // namespace
