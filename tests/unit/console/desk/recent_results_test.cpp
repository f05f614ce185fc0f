#include "console/desk/recent_results.h"

#include <gtest/gtest.h>

namespace console {
namespace {

constexpr Time_us kBegin_us = 1700000000 * kSecond_us;

Time_us After(int seconds) { return kBegin_us + seconds * kSecond_us; }

int PerMinute(const RecentResults& results) { return results.ToJson()["per_minute"].asInt(); }

TEST(RecentResults, AreNothingBeforeTheFirst) {
  RecentResults results;
  EXPECT_FALSE(results.OnTime(kBegin_us));
  EXPECT_TRUE(results.ToJson().isNull());
}

TEST(RecentResults, CountForAMinute) {
  RecentResults results;
  results.OnArrived("A", After(0));
  results.OnArrived("B", After(0));
  results.OnArrived("C", After(30));
  EXPECT_FALSE(results.OnTime(After(59)));
  EXPECT_EQ(PerMinute(results), 3);
  EXPECT_TRUE(results.OnTime(After(60)));
  EXPECT_EQ(PerMinute(results), 1);
  EXPECT_FALSE(results.OnTime(After(89)));
  EXPECT_TRUE(results.OnTime(After(90)));
  EXPECT_EQ(PerMinute(results), 0);
}

TEST(RecentResults, CountASteadyRateAsItIs) {
  RecentResults results;
  for (int second = 0; second < 300; ++second) {
    results.OnArrived("A", After(second));
    results.OnArrived("B", After(second));
  }
  EXPECT_EQ(PerMinute(results), 120);
}

TEST(RecentResults, KeepTheLatestPlateWhenTheMinuteIsOver) {
  RecentResults results;
  results.OnArrived("A", After(0));
  results.OnArrived("B", After(1));
  results.OnTime(After(500));
  EXPECT_EQ(results.ToJson()["plate"].asString(), "B");
  EXPECT_EQ(results.ToJson()["plate_at_us"].asInt64(), After(1));
  EXPECT_EQ(PerMinute(results), 0);
}

TEST(RecentResults, CountAnewWhenTheClockIsSetBack) {
  RecentResults results;
  results.OnArrived("A", After(100));
  EXPECT_TRUE(results.OnTime(After(0)));
  results.OnArrived("B", After(1));
  EXPECT_EQ(PerMinute(results), 1);
}

}  // namespace
}  // namespace console
