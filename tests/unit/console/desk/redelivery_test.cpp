#include "console/desk/redelivery.h"

#include <gtest/gtest.h>

namespace console {
namespace {

TEST(Redelivery, IsNothingBeforeTheFirst) {
  Redelivery redelivery;
  EXPECT_TRUE(redelivery.ToJson().isNull());
  EXPECT_FALSE(redelivery.OnTime(3, kSecond_us));
}

TEST(Redelivery, TellsRateAndTimeToGo) {
  Redelivery redelivery;
  redelivery.OnPublished(kSecond_us);
  redelivery.OnAcknowledged(2 * kSecond_us);
  redelivery.OnPublished(2 * kSecond_us);
  redelivery.OnAcknowledged(3 * kSecond_us);
  EXPECT_TRUE(redelivery.OnTime(5, 3 * kSecond_us));
  const Json::Value json = redelivery.ToJson();
  EXPECT_TRUE(json["running"].asBool());
  EXPECT_EQ(json["done"].asInt(), 2);
  EXPECT_EQ(json["left"].asInt(), 5);
  EXPECT_DOUBLE_EQ(json["per_second"].asDouble(), 1.0);
  EXPECT_DOUBLE_EQ(json["to_go_s"].asDouble(), 5.0);
}

TEST(Redelivery, EndsWhenNothingIsLeft) {
  Redelivery redelivery;
  redelivery.OnPublished(kSecond_us);
  redelivery.OnAcknowledged(kSecond_us + 1);
  redelivery.OnTime(0, kSecond_us + 2);
  EXPECT_FALSE(redelivery.ToJson()["running"].asBool());
  EXPECT_FALSE(redelivery.OnTime(0, kSecond_us + 3));
}

TEST(Redelivery, EndsWhenNoneHasFollowedForAWhile) {
  Redelivery redelivery;
  redelivery.OnPublished(kSecond_us);
  redelivery.OnTime(5, 7 * kSecond_us);
  EXPECT_TRUE(redelivery.ToJson()["running"].asBool());
  redelivery.OnTime(5, 8 * kSecond_us);
  EXPECT_FALSE(redelivery.ToJson()["running"].asBool());
  redelivery.OnPublished(9 * kSecond_us);
  EXPECT_EQ(redelivery.ToJson()["done"].asInt(), 0);
}

}  // namespace
}  // namespace console
