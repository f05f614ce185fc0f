#include "cloud_agent/screen/redelivery_progress.h"

#include <gtest/gtest.h>

namespace agent {
namespace {

class RedeliveryProgressTest : public testing::Test {
 protected:
  std::string Delivered(int at_s) {
    return progress_.OnDelivered(start_ + std::chrono::seconds(at_s)).value_or("no line");
  }
  void Begin(std::int64_t undelivered) {
    EXPECT_TRUE(progress_.OnPublished(start_));
    progress_.OnCount(undelivered);
  }
  RedeliveryProgress progress_;
  const RedeliveryProgress::TimePoint start_ = std::chrono::steady_clock::now();
};

TEST_F(RedeliveryProgressTest, TellsWhatIsDoneAndLeftAndHowLongItTakes) {
  Begin(21);
  EXPECT_EQ(Delivered(5), "re-delivery: 1 done, 20 left, 0.2/s, 100 s to go");
}

TEST_F(RedeliveryProgressTest, ShowsLongTimesInMinutesAndHours) {
  Begin(100);
  EXPECT_EQ(Delivered(5), "re-delivery: 1 done, 99 left, 0.2/s, 8 min to go");
  progress_.OnEnded();
  Begin(10001);
  EXPECT_EQ(Delivered(5), "re-delivery: 1 done, 10000 left, 0.2/s, 13.9 h to go");
}

TEST_F(RedeliveryProgressTest, PrintsAtMostOneLineASecondAndAlwaysTheLast) {
  Begin(3);
  EXPECT_NE(Delivered(1), "no line");
  EXPECT_EQ(Delivered(1), "no line");
  EXPECT_EQ(Delivered(1), "re-delivery: 3 done, 0 left, 3.0/s, 0 s to go");
}

TEST_F(RedeliveryProgressTest, AsksForTheCountOnceARun) {
  Begin(3);
  EXPECT_FALSE(progress_.OnPublished(start_));
  progress_.OnEnded();
  EXPECT_TRUE(progress_.OnPublished(start_));
}

TEST_F(RedeliveryProgressTest, FollowsTheStoresCount) {
  Begin(3);
  progress_.OnCount(11);
  EXPECT_EQ(Delivered(1), "re-delivery: 1 done, 10 left, 1.0/s, 10 s to go");
}

TEST_F(RedeliveryProgressTest, SaysNothingOutsideARun) { EXPECT_EQ(Delivered(1), "no line"); }

}  // namespace
}  // namespace agent
