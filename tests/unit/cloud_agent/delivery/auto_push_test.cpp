#include "cloud_agent/auto_push.h"

#include <gtest/gtest.h>

#include "fake_loop.h"

namespace agent {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class AutoPushTest : public ::testing::Test {
 protected:
  FakeLoop loop_;
  std::optional<Undelivered> undelivered_ = Undelivered{3, 100};
  int pushes_ = 0;
  AutoPush auto_push_{[this](int delay_ms, std::function<void()> task) {
                        loop_.PostAfter()(milliseconds(delay_ms), std::move(task));
                      },
                      [this] { return undelivered_; }, [this] { ++pushes_; }};
};

TEST_F(AutoPushTest, AsksOnceTheLinkHasStoodForAWhile) {
  auto_push_.OnLinkUp();
  loop_.Advance(milliseconds(5999));
  EXPECT_EQ(pushes_, 0);
  loop_.Advance(milliseconds(1));
  EXPECT_EQ(pushes_, 1);
  loop_.Advance(seconds(60));
  EXPECT_EQ(pushes_, 1);
}

TEST_F(AutoPushTest, AsksForNothingWhereNothingIsLeft) {
  undelivered_ = Undelivered{0, std::nullopt};
  auto_push_.OnLinkUp();
  loop_.Advance(seconds(60));
  EXPECT_EQ(pushes_, 0);
}

TEST_F(AutoPushTest, LeavesARedeliveryThatRunsAlone) {
  auto_push_.OnLinkUp();
  for (int record = 0; record < 10; ++record) {
    loop_.Advance(seconds(5));
    auto_push_.OnOfflineActivity();
  }
  EXPECT_EQ(pushes_, 0);
  loop_.Advance(seconds(6));
  EXPECT_EQ(pushes_, 1);
}

TEST_F(AutoPushTest, ForgetsALinkThatDidNotLast) {
  auto_push_.OnLinkUp();
  loop_.Advance(seconds(3));
  auto_push_.OnLinkDown();
  loop_.Advance(seconds(60));
  auto_push_.OnTick(undelivered_);
  EXPECT_EQ(pushes_, 0);
}

TEST_F(AutoPushTest, AsksAgainAfterEachReconnection) {
  auto_push_.OnLinkUp();
  loop_.Advance(seconds(10));
  auto_push_.OnLinkDown();
  auto_push_.OnLinkUp();
  loop_.Advance(seconds(10));
  EXPECT_EQ(pushes_, 2);
}

TEST_F(AutoPushTest, TriesLaterWhenTheStoreDoesNotAnswer) {
  undelivered_.reset();
  auto_push_.OnLinkUp();
  loop_.Advance(seconds(10));
  auto_push_.OnTick(std::nullopt);
  EXPECT_EQ(pushes_, 0);
  auto_push_.OnTick(Undelivered{1, 0});
  EXPECT_EQ(pushes_, 1);
}

TEST_F(AutoPushTest, AsksAgainForOldResultsButNotForThoseJustUnderWay) {
  undelivered_ = Undelivered{0, std::nullopt};
  auto_push_.OnLinkUp();
  loop_.Advance(seconds(10));
  auto_push_.OnTick(Undelivered{1, 29});
  auto_push_.OnTick(Undelivered{1, std::nullopt});
  EXPECT_EQ(pushes_, 0);
  auto_push_.OnTick(Undelivered{1, 30});
  EXPECT_EQ(pushes_, 1);
  auto_push_.OnTick(Undelivered{1, 40});  // the one just begun has not shown yet
  EXPECT_EQ(pushes_, 1);
}

TEST(PushEverything, IsARequestTheAdapterTakes) {
  const Json::Value request = PushEverythingRequest();
  EXPECT_EQ(request["type"], Json::Value("check_offline_record"));
  EXPECT_EQ(request["body"]["enable"], Json::Value("push"));
  EXPECT_EQ(request["body"]["max_count"], Json::Value(1000000));
  EXPECT_EQ(request["body"]["min_id"], Json::Value(0));
}

}  // namespace
}  // namespace agent
