#include "platform/bus_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bus_fixture.h"

namespace {

using tarvex::BusOutcome;

class BusWatchTest : public BusTest {
 protected:
  BusWatchTest() {
    tarvex::SetBusWatch([this](const tarvex::BusRequest& request) { seen_.push_back(request); });
  }
  ~BusWatchTest() override { tarvex::SetBusWatch({}); }

  std::vector<tarvex::BusRequest> seen_;
};

TEST_P(BusWatchTest, SeesAnAnswer) {
  device_.Serve("queue", [](const std::string&) { return "answer"; });
  EXPECT_EQ(Request("queue", "text"), 1);
  EXPECT_EQ(reply_, "answer");
  ASSERT_EQ(seen_.size(), 1U);
  EXPECT_EQ(seen_[0].queue, "queue");
  EXPECT_EQ(seen_[0].outcome, BusOutcome::kAnswered);
  EXPECT_EQ(seen_[0].reply, "answer");
}

TEST_P(BusWatchTest, TellsAQueueThatNobodyServesFromASilentOne) {
  device_.Serve("queue", [](const std::string&) { return Device::kSilence; });
  Request("NOBODY", "text");
  Request("queue", "text", 50);
  ASSERT_EQ(seen_.size(), 2U);
  EXPECT_EQ(seen_[0].outcome, BusOutcome::kNobody);
  EXPECT_EQ(seen_[1].outcome, BusOutcome::kTimedOut);
  EXPECT_GE(seen_[1].time, std::chrono::milliseconds(48));
}

TEST_P(BusWatchTest, SeesWhatWasAskedAndHowLongThatMightTake) {
  std::string body;
  tarvex::SetBusWatch([&](const tarvex::BusRequest& request) {
    body = request.body;
    seen_.push_back(request);
  });
  device_.Serve("queue", [](const std::string&) { return "answer"; });
  Request("queue", "bytes", 20000);
  EXPECT_EQ(body, "bytes");
  EXPECT_EQ(seen_.at(0).timeout_ms, 20000);
  EXPECT_GT(seen_.at(0).time, std::chrono::microseconds(0));
}

TEST_P(BusWatchTest, SeesThatTheBusIsNotThere) {
  server_.Kill();
  ASSERT_TRUE(WaitUntil([this] {
    Request("queue", "text", 20);
    return seen_.back().outcome == BusOutcome::kNotConnected;
  }));
}

TEST_P(BusWatchTest, SeesNothingAfterItsEnd) {
  tarvex::SetBusWatch({});
  Request("NOBODY", "text");
  EXPECT_THAT(seen_, testing::IsEmpty());
}

TEST_P(BusWatchTest, MayEndItselfWhileItIsCalled) {
  int calls = 0;
  tarvex::SetBusWatch([&calls](const tarvex::BusRequest&) {
    ++calls;
    tarvex::SetBusWatch({});
  });
  Request("NOBODY", "text");
  Request("NOBODY", "text");
  EXPECT_EQ(calls, 1);
}

INSTANTIATE_FOR_THREADS(BusWatchTest);

}  // namespace
