#include "cloud_agent/delivery_guard.h"

#include <gtest/gtest.h>

#include "delivery_world.h"

namespace agent {
namespace {

using Plates = std::vector<unsigned>;

class ResultGate : public ::testing::Test {
 protected:
  DeliveryWorld world_;
};

TEST_F(ResultGate, HandsOverTheNextOnlyAfterTheAcknowledgement) {
  world_.CarPasses(1);
  world_.CarPasses(2);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1}));
  EXPECT_EQ(world_.guard.ResultsWaiting(), 1U);
  world_.Acknowledge();
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1, 2}));
  EXPECT_EQ(world_.guard.ResultsWaiting(), 0U);
}

TEST_F(ResultGate, ConfirmsBeforeItHandsOverTheNext) {
  world_.CarPasses(1);
  world_.CarPasses(2);
  world_.loop.Run();
  world_.Acknowledge();
  world_.loop.Run();
  EXPECT_EQ(world_.store.marked, (std::set<unsigned>{1}));
}

TEST_F(ResultGate, HandsOverTheNextWhenTheLinkBreaks) {
  world_.CarPasses(1);
  world_.CarPasses(2);
  world_.loop.Run();
  world_.LinkBreaks();
  world_.link_up = true;
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1, 2}));
}

TEST_F(ResultGate, LetsEverythingThroughWhileTheLinkIsDown) {
  world_.LinkBreaks();
  for (unsigned plate_id = 1; plate_id <= 30; ++plate_id) {
    world_.CarPasses(plate_id);
  }
  world_.loop.Run();
  EXPECT_EQ(world_.guard.ResultsWaiting(), 0U);
  EXPECT_EQ(world_.store.undelivered.size(), 30U);
}

TEST_F(ResultGate, HandsOverTheNextWhenTheBrokerRefusesOneAndConfirmsNothing) {
  world_.CarPasses(1);
  world_.CarPasses(2);
  world_.loop.Run();
  world_.Acknowledge(false);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1, 2}));
  EXPECT_TRUE(world_.store.marked.empty());
}

TEST_F(ResultGate, GoesOnWhenNothingIsPublishedOfAResult) {
  int handed_over = 0;
  for (int i = 0; i < 3; ++i) {
    world_.guard.OnBusMessage("BUS_SRV_IVS_RESULT", [&handed_over] { ++handed_over; });
  }
  world_.loop.Run();
  EXPECT_EQ(handed_over, 3);
  EXPECT_EQ(world_.guard.counters().results_without_publication, 3U);
}

TEST_F(ResultGate, IsNotHeldUpByAMessageOfAnotherTag) {
  world_.CarPasses(1);
  world_.loop.Run();
  world_.guard.OnPublished(900, 13, Json::Value());
  world_.guard.OnNotPublished(13);
  world_.guard.OnAcknowledged(900, true);
  world_.CarPasses(2);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1}));
}

TEST_F(ResultGate, LetsOtherTopicsThroughAtOnce) {
  world_.CarPasses(1);
  world_.loop.Run();
  bool is_delivered = false;
  world_.guard.OnBusMessage("EVS_RS485_READ", [&is_delivered] { is_delivered = true; });
  EXPECT_TRUE(is_delivered);
}

TEST_F(ResultGate, KeepsTheOrderOfArrival) {
  for (unsigned plate_id = 1; plate_id <= 5; ++plate_id) {
    world_.CarPasses(plate_id);
  }
  world_.loop.Run();
  while (!world_.in_flight.empty()) {
    world_.Acknowledge();
    world_.CarPasses(100 + static_cast<unsigned>(world_.history.size()));
    world_.loop.Run();
    if (world_.history.size() == 6) {
      break;
    }
  }
  EXPECT_EQ(world_.history, (Plates{1, 2, 3, 4, 5, 101}));
}

TEST(ResultGateBounds, LeaveWhatDoesNotFitToTheStoreAndCountIt) {
  DeliveryGuard::Options options;
  options.results_waiting = 2;
  DeliveryWorld world(options);
  for (unsigned plate_id = 1; plate_id <= 5; ++plate_id) {
    world.CarPasses(plate_id);
  }
  EXPECT_EQ(world.guard.ResultsWaiting(), 2U);
  EXPECT_EQ(world.guard.counters().results_overflowed, 2U);
  world.loop.Run();
  while (!world.in_flight.empty()) {
    world.Acknowledge();
    world.loop.Run();
  }
  EXPECT_EQ(world.history, (Plates{1, 2, 3}));
  EXPECT_EQ(world.store.undelivered, (std::deque<unsigned>{4, 5}));
}

TEST(ResultGateBounds, AllowMoreInFlightWhereThatIsAskedFor) {
  DeliveryGuard::Options options;
  options.results_in_flight = 3;
  DeliveryWorld world(options);
  for (unsigned plate_id = 1; plate_id <= 5; ++plate_id) {
    world.CarPasses(plate_id);
    world.loop.Run();
  }
  EXPECT_EQ(world.history, (Plates{1, 2, 3}));
}

TEST_F(ResultGate, WaitsForTheAcknowledgementOfThatVeryPublication) {
  world_.CarPasses(1);
  world_.CarPasses(2);
  world_.loop.Run();
  world_.guard.OnAcknowledged(77, true);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1}));
  EXPECT_EQ(world_.guard.counters().ignored_acks, 1U);
}

TEST_F(ResultGate, IgnoresAndCountsAnAcknowledgementOfBeforeTheLoss) {
  world_.CarPasses(1);
  world_.loop.Run();
  world_.LinkBreaksAfterDelivery();
  world_.LateAcknowledgement();
  EXPECT_TRUE(world_.store.marked.empty());
  EXPECT_EQ(world_.guard.counters().ignored_acks, 1U);
}

class OfflineGate : public ::testing::Test {
 protected:
  OfflineGate() { world_.store.undelivered = {1, 2, 3}; }

  DeliveryWorld world_;
};

TEST_F(OfflineGate, RedeliversRecordAfterRecord) {
  world_.Push(10);
  world_.loop.Run();
  for (int i = 0; i < 3; ++i) {
    world_.Acknowledge();
    world_.NextOfflineStep();
  }
  EXPECT_EQ(world_.history, (Plates{1, 2, 3}));
  EXPECT_EQ(world_.store.marked, (std::set<unsigned>{1, 2, 3}));
}

TEST_F(OfflineGate, DropsASecondRecordUnderWayAndTheFirstChainGoesOn) {
  world_.Push(10);
  world_.Push(10);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1}));
  EXPECT_EQ(world_.guard.counters().dropped_offline_busy, 1U);
  world_.Acknowledge();
  world_.NextOfflineStep();
  EXPECT_EQ(world_.history, (Plates{1, 2}));
  EXPECT_TRUE(world_.later.empty());
}

TEST_F(OfflineGate, WithholdsTheAcknowledgementAfterAStop) {
  world_.Push(10);
  world_.loop.Run();
  world_.Stop();
  world_.Acknowledge();
  EXPECT_TRUE(world_.store.marked.empty());
  EXPECT_EQ(world_.guard.counters().withheld_acks, 1U);
}

TEST_F(OfflineGate, GoesOnAfterAStopAndAPushThatBeginWithTheSameRecord) {
  world_.Push(10);
  world_.loop.Run();
  world_.Stop();
  world_.Push(10);
  world_.loop.Run();
  world_.Acknowledge();
  EXPECT_EQ(world_.store.marked, (std::set<unsigned>{1}));
  world_.NextOfflineStep();
  EXPECT_EQ(world_.history, (Plates{1, 2}));
}

TEST_F(OfflineGate, IsFreeAgainAfterALossOfTheLink) {
  world_.Push(10);
  world_.loop.Run();
  world_.LinkBreaks();
  world_.link_up = true;
  world_.Push(10);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1, 1}));
  EXPECT_EQ(world_.guard.counters().dropped_offline_busy, 0U);
}

TEST_F(OfflineGate, IsFreeAgainAfterARefusal) {
  world_.Push(10);
  world_.loop.Run();
  world_.Acknowledge(false);
  world_.Push(10);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1, 1}));
}

/// Requests that make the plug-in forget its records, and some that do not.
struct RequestCase {
  const char* name;
  const char* body;
  bool empties;
};

class OfflineRequestGate : public OfflineGate, public ::testing::WithParamInterface<RequestCase> {};

TEST_P(OfflineRequestGate, WithholdsTheAcknowledgementJustWhenTheQueueWasEmptied) {
  world_.Push(10);
  world_.loop.Run();
  Json::Value payload;
  const std::string text = GetParam().body;
  const std::size_t space = text.find(' ');
  payload["body"]["enable"] = text.substr(0, space);
  if (space != std::string::npos) {
    payload["body"]["max_count"] = std::stoi(text.substr(space));
  }
  world_.guard.OnRequestCarriedOut(GetParam().name, payload);
  world_.Acknowledge();
  EXPECT_EQ(world_.store.marked.empty(), GetParam().empties);
}

INSTANTIATE_TEST_SUITE_P(All, OfflineRequestGate,
                         ::testing::Values(RequestCase{"check_offline_record", "stop", true},
                                           RequestCase{"check_offline_record", "push", true},
                                           RequestCase{"check_offline_record", "push 0", true},
                                           RequestCase{"check_offline_record", "push 5", false},
                                           RequestCase{"check_offline_record", "push -1", false},
                                           RequestCase{"check_offline_record", "clear", false},
                                           RequestCase{"gpio_out", "stop", false}));

TEST_F(OfflineGate, SurvivesPayloadsOfAnyShape) {
  world_.guard.OnPublished(900, 16, Json::Value("text"));
  EXPECT_FALSE(world_.guard.MayPublish(16, Json::Value(Json::arrayValue)));
  world_.guard.OnRequestCarriedOut("check_offline_record", Json::Value(5));
  world_.guard.OnRequestCarriedOut("check_offline_record", OfflineRequest(""));
  world_.guard.OnAcknowledged(900, true);
  EXPECT_EQ(world_.guard.counters().withheld_acks, 1U);
}

}  // namespace
}  // namespace agent
