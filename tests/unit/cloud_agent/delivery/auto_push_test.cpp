#include "cloud_agent/delivery/auto_push.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_loop.h"

namespace agent {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;

class AutoPushTest : public ::testing::Test {
 protected:
  explicit AutoPushTest(bool everything = true)
      : auto_push_(everything, &guard_,
                   AutoPush::Host{[this](int delay_ms, std::function<void()> task) {
                                    loop_.PostAfter()(milliseconds(delay_ms), std::move(task));
                                  },
                                  [this] { return AutoPush::TimePoint(loop_.now()); },
                                  [this] {
                                    ++looks_;
                                    return undelivered_;
                                  },
                                  [this](int max_count) { pushes_.push_back(max_count); }}) {}

  /// Lets time pass, with a look as often as there is to be one.
  void Pass(seconds time) {
    for (seconds passed{0}; passed < time; passed += AutoPush::kLook) {
      loop_.Advance(AutoPush::kLook);
      auto_push_.Look();
    }
  }

  void ResultIsPublished(Answer answer) {
    Sent sent;
    sent.tag = 11;
    guard_.OnPublished(++last_publication_, sent);
    guard_.OnAcknowledged(last_publication_, answer);
  }

  FakeLoop loop_;
  DeliveryGuard guard_{DeliveryGuard::Options(), loop_.Post(), [](unsigned long long) {}};
  std::optional<Undelivered> undelivered_ = Undelivered{3, 100};
  std::uint64_t last_publication_ = 0;
  int looks_ = 0;
  std::vector<int> pushes_;
  AutoPush auto_push_;
};

TEST_F(AutoPushTest, AsksOnceTheLinkHasStoodForAWhile) {
  auto_push_.OnLinkUp();
  loop_.Advance(milliseconds(5999));
  EXPECT_THAT(pushes_, ElementsAre());
  loop_.Advance(milliseconds(1));
  EXPECT_THAT(pushes_, ElementsAre(1000000));
  undelivered_ = Undelivered{0, std::nullopt};
  Pass(seconds(60));
  EXPECT_EQ(pushes_.size(), 1U);
}

TEST_F(AutoPushTest, AsksForNothingWhereNothingIsLeft) {
  undelivered_ = Undelivered{0, std::nullopt};
  auto_push_.OnLinkUp();
  Pass(seconds(60));
  EXPECT_THAT(pushes_, ElementsAre());
}

TEST_F(AutoPushTest, LeavesARedeliveryThatRunsAlone) {
  auto_push_.OnLinkUp();
  for (int record = 0; record < 10; ++record) {
    Pass(seconds(5));
    auto_push_.OnOfflineActivity();
  }
  EXPECT_THAT(pushes_, ElementsAre());
  loop_.Advance(seconds(6));
  EXPECT_EQ(pushes_.size(), 1U);
}

TEST_F(AutoPushTest, ForgetsALinkThatDidNotLast) {
  auto_push_.OnLinkUp();
  loop_.Advance(seconds(3));
  auto_push_.OnLinkDown();
  Pass(seconds(60));
  EXPECT_THAT(pushes_, ElementsAre());
}

TEST_F(AutoPushTest, AsksAgainAfterEachReconnection) {
  auto_push_.OnLinkUp();
  loop_.Advance(seconds(10));
  auto_push_.OnLinkDown();
  auto_push_.OnLinkUp();
  loop_.Advance(seconds(10));
  EXPECT_EQ(pushes_.size(), 2U);
}

TEST_F(AutoPushTest, TriesLaterWhenTheStoreDoesNotAnswer) {
  undelivered_.reset();
  auto_push_.OnLinkUp();
  Pass(seconds(10));
  EXPECT_THAT(pushes_, ElementsAre());
  undelivered_ = Undelivered{1, 0};
  Pass(seconds(5));
  EXPECT_EQ(pushes_.size(), 1U);
}

TEST_F(AutoPushTest, AsksAgainForWhatRemainsHalfAMinuteWhateverTheCamerasClock) {
  undelivered_ = Undelivered{0, std::nullopt};
  auto_push_.OnLinkUp();
  Pass(seconds(10));
  undelivered_ = Undelivered{1, -3600};  // the clock was set back
  Pass(seconds(30));
  EXPECT_THAT(pushes_, ElementsAre());
  Pass(seconds(5));
  EXPECT_EQ(pushes_.size(), 1U);
}

TEST_F(AutoPushTest, DoesNotAskForWhatIsJustUnderWay) {
  undelivered_ = Undelivered{0, std::nullopt};
  auto_push_.OnLinkUp();
  Pass(seconds(10));
  guard_.OnLinkUp();
  guard_.OnBusMessage("BUS_SRV_IVS_RESULT", [] {});  // in hand, and two wait
  guard_.OnBusMessage("BUS_SRV_IVS_RESULT", [] {});
  guard_.OnBusMessage("BUS_SRV_IVS_RESULT", [] {});
  Sent sent;
  sent.tag = 11;
  guard_.OnPublished(1, sent);
  undelivered_ = Undelivered{3, 90};
  Pass(seconds(120));
  EXPECT_THAT(pushes_, ElementsAre());
}

class OfferTest : public AutoPushTest {
 protected:
  OfferTest() : AutoPushTest(false) { auto_push_.OnLinkUp(); }
};

TEST_F(OfferTest, IsNotMadeWhileSomebodyListens) {
  Pass(seconds(60));
  EXPECT_THAT(pushes_, ElementsAre());
  EXPECT_EQ(looks_, 0);
}

TEST_F(OfferTest, IsOneStoredResultAgainAndAgainWhileNobodyListens) {
  ResultIsPublished(Answer::kUnheard);
  Pass(seconds(5));
  EXPECT_THAT(pushes_, ElementsAre());
  Pass(seconds(15));
  EXPECT_THAT(pushes_, ElementsAre(1, 1, 1));
  ResultIsPublished(Answer::kTaken);
  Pass(seconds(60));
  EXPECT_EQ(pushes_.size(), 3U);
}

TEST_F(OfferTest, IsTheNextLiveResultWhereTheStoreHasNone) {
  ResultIsPublished(Answer::kUnheard);
  undelivered_ = Undelivered{0, std::nullopt};
  Pass(seconds(10));
  EXPECT_THAT(pushes_, ElementsAre());
  EXPECT_FALSE(guard_.NobodyListens());
}

}  // namespace
}  // namespace agent
