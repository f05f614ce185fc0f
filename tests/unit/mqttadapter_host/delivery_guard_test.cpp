#include "mqttadapter_host/delivery_guard.h"

#include <gtest/gtest.h>

#include "delivery_world.h"

namespace mqttadapter_host {
namespace {

using Plates = std::vector<unsigned>;

class ResultsInLine : public ::testing::Test {
 protected:
  DeliveryWorld world_;
};

TEST_F(ResultsInLine, HandsOverTheNextOnlyAfterTheAcknowledgement) {
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

TEST_F(ResultsInLine, ConfirmsBeforeItHandsOverTheNext) {
  world_.CarPasses(1);
  world_.CarPasses(2);
  world_.loop.Run();
  world_.Acknowledge();
  world_.loop.Run();
  EXPECT_EQ(world_.store.marked, (std::set<unsigned>{1}));
}

TEST_F(ResultsInLine, GoOnWithTheNextThatArrivesWhenTheLinkIsBack) {
  world_.CarPasses(1);
  world_.loop.Run();
  world_.LinkBreaks();
  world_.LinkComesUp();
  world_.CarPasses(2);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1, 2}));
}

TEST_F(ResultsInLine, StayInTheStoreUntouchedWhileTheLinkIsDown) {
  world_.CarPasses(1);
  world_.CarPasses(2);
  world_.loop.Run();
  world_.LinkBreaks();
  for (unsigned plate_id = 3; plate_id <= 30; ++plate_id) {
    world_.CarPasses(plate_id);
  }
  world_.LinkComesUp();
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1}));
  EXPECT_EQ(world_.guard.ResultsUnderWay(), 0U);
  EXPECT_EQ(world_.guard.counters().results_held_back, 29U);
  EXPECT_EQ(world_.store.undelivered.size(), 30U);
}

TEST_F(ResultsInLine, StayInTheStoreWhileNobodyListens) {
  world_.CarPasses(1);
  world_.CarPasses(2);
  world_.loop.Run();
  world_.AcknowledgeUnheard();
  world_.CarPasses(3);
  world_.loop.Run();
  EXPECT_TRUE(world_.guard.NobodyListens());
  EXPECT_EQ(world_.history, (Plates{1}));
  EXPECT_TRUE(world_.store.marked.empty());
  EXPECT_EQ(world_.guard.counters().results_unheard, 1U);
  EXPECT_EQ(world_.guard.counters().results_held_back, 2U);
}

TEST_F(ResultsInLine, GoOnWhenAStoredResultWasHeard) {
  world_.CarPasses(1);
  world_.loop.Run();
  world_.AcknowledgeUnheard();
  world_.Push(1);
  world_.loop.Run();
  world_.Acknowledge();
  world_.CarPasses(2);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1, 1, 2}));
  EXPECT_EQ(world_.store.marked, (std::set<unsigned>{1}));
}

TEST_F(ResultsInLine, DoNotWaitForAListenerOfOtherMessages) {
  Sent sent;
  sent.tag = 13;
  world_.guard.OnPublished(900, sent);
  world_.guard.OnAcknowledged(900, Answer::kUnheard);
  EXPECT_FALSE(world_.guard.NobodyListens());
  EXPECT_EQ(world_.guard.counters().results_unheard, 0U);
}

TEST(UnheardResults, AreConfirmedWhereThatIsChosen) {
  DeliveryGuard::Options options;
  options.confirm_unheard = true;
  DeliveryWorld world(options);
  world.CarPasses(1);
  world.loop.Run();
  world.AcknowledgeUnheard();
  EXPECT_EQ(world.store.marked, (std::set<unsigned>{1}));
  EXPECT_FALSE(world.guard.NobodyListens());
  EXPECT_EQ(world.guard.counters().results_unheard, 1U);
}

TEST(Unacknowledged, MessagesOfThePluginAreBoundedInNumber) {
  DeliveryGuard::Options options;
  options.max_unacknowledged = 2;
  DeliveryWorld world(options);
  Sent sent;
  sent.tag = 13;
  world.guard.OnPublished(1, sent);
  EXPECT_TRUE(world.guard.HasRoom(13, 10));
  world.guard.OnPublished(2, sent);
  EXPECT_FALSE(world.guard.HasRoom(13, 10));
  EXPECT_TRUE(world.guard.HasRoom(0, 10));
  world.guard.OnAcknowledged(1, Answer::kRefused);
  EXPECT_TRUE(world.guard.HasRoom(13, 10));
}

TEST(Unacknowledged, MessagesAreBoundedInBytesUntilTheyAreAnsweredOrTheLinkIsLost) {
  DeliveryWorld world;
  Sent response;
  response.bytes = std::size_t{1} << 20;
  std::uint64_t publication = 0;
  while (world.guard.HasRoom(0, response.bytes)) {
    world.guard.OnPublished(++publication, response);
  }
  EXPECT_EQ(publication, 15U);
  world.guard.OnAcknowledged(1, Answer::kTaken);
  EXPECT_TRUE(world.guard.HasRoom(0, response.bytes));
  EXPECT_EQ(world.guard.OnLinkDown().size(), 14U);
  EXPECT_TRUE(world.guard.HasRoom(0, 15 * response.bytes));
}

TEST(Unacknowledged, MessagesAreKnownByTheirAge) {
  DeliveryWorld world;
  Sent sent;
  sent.sent_at = Sent::TimePoint(std::chrono::seconds(10));
  world.guard.OnPublished(1, sent);
  EXPECT_FALSE(world.guard.OwesOneSentBefore(sent.sent_at));
  EXPECT_TRUE(world.guard.OwesOneSentBefore(sent.sent_at + std::chrono::seconds(1)));
}

TEST(Unacknowledged, MessagesComeBackToWhoeverSentThem) {
  DeliveryWorld world;
  Sent sent;
  sent.description = "x";
  world.guard.OnPublished(7, sent);
  EXPECT_EQ(world.guard.OnAcknowledged(7, Answer::kTaken)->description, "x");
  EXPECT_FALSE(world.guard.OnAcknowledged(7, Answer::kTaken).has_value());
}

TEST_F(ResultsInLine, HandsOverTheNextWhenTheBrokerRefusesOneAndConfirmsNothing) {
  world_.CarPasses(1);
  world_.CarPasses(2);
  world_.loop.Run();
  world_.Acknowledge(false);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1, 2}));
  EXPECT_TRUE(world_.store.marked.empty());
}

TEST_F(ResultsInLine, GoesOnWhenNothingIsPublishedOfAResult) {
  int handed_over = 0;
  for (int i = 0; i < 3; ++i) {
    world_.guard.OnBusMessage("BUS_SRV_IVS_RESULT", [&handed_over] { ++handed_over; });
  }
  world_.loop.Run();
  EXPECT_EQ(handed_over, 3);
  EXPECT_EQ(world_.guard.counters().results_without_publication, 3U);
}

TEST_F(ResultsInLine, IsNotHeldUpByAMessageOfAnotherTag) {
  world_.CarPasses(1);
  world_.loop.Run();
  Sent sent;
  sent.tag = 13;
  world_.guard.OnPublished(900, sent);
  world_.guard.OnNotPublished(13);
  world_.guard.OnAcknowledged(900, Answer::kTaken);
  world_.CarPasses(2);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1}));
}

TEST_F(ResultsInLine, LetsOtherTopicsThroughAtOnce) {
  world_.CarPasses(1);
  world_.loop.Run();
  bool is_delivered = false;
  world_.guard.OnBusMessage("EVS_RS485_READ", [&is_delivered] { is_delivered = true; });
  EXPECT_TRUE(is_delivered);
}

TEST_F(ResultsInLine, KeepsTheOrderOfArrival) {
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

TEST(ResultLineBounds, LeaveWhatDoesNotFitToTheStoreAndCountIt) {
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

TEST(ResultLineBounds, AllowMoreInFlightWhereThatIsAskedFor) {
  DeliveryGuard::Options options;
  options.results_in_flight = 3;
  DeliveryWorld world(options);
  for (unsigned plate_id = 1; plate_id <= 5; ++plate_id) {
    world.CarPasses(plate_id);
    world.loop.Run();
  }
  EXPECT_EQ(world.history, (Plates{1, 2, 3}));
}

TEST_F(ResultsInLine, WaitsForTheAcknowledgementOfThatVeryPublication) {
  world_.CarPasses(1);
  world_.CarPasses(2);
  world_.loop.Run();
  world_.guard.OnAcknowledged(77, Answer::kTaken);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1}));
  EXPECT_EQ(world_.guard.counters().ignored_acks, 1U);
}

TEST_F(ResultsInLine, IgnoresAndCountsAnAcknowledgementOfBeforeTheLoss) {
  world_.CarPasses(1);
  world_.loop.Run();
  world_.LinkBreaksAfterDelivery();
  world_.LateAcknowledgement();
  EXPECT_TRUE(world_.store.marked.empty());
  EXPECT_EQ(world_.guard.counters().ignored_acks, 1U);
}

class RecordsInLine : public ::testing::Test {
 protected:
  RecordsInLine() { world_.store.undelivered = {1, 2, 3}; }

  DeliveryWorld world_;
};

TEST_F(RecordsInLine, RedeliversRecordAfterRecord) {
  world_.Push(10);
  world_.loop.Run();
  for (int i = 0; i < 3; ++i) {
    world_.Acknowledge();
    world_.NextOfflineStep();
  }
  EXPECT_EQ(world_.history, (Plates{1, 2, 3}));
  EXPECT_EQ(world_.store.marked, (std::set<unsigned>{1, 2, 3}));
}

TEST_F(RecordsInLine, DropsASecondRecordUnderWayAndTheFirstChainGoesOn) {
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

TEST_F(RecordsInLine, WithholdsTheAcknowledgementAfterAStop) {
  world_.Push(10);
  world_.loop.Run();
  world_.Stop();
  world_.Acknowledge();
  EXPECT_TRUE(world_.store.marked.empty());
  EXPECT_EQ(world_.guard.counters().withheld_acks, 1U);
}

TEST_F(RecordsInLine, GoesOnAfterAStopAndAPushThatBeginWithTheSameRecord) {
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

TEST_F(RecordsInLine, IsFreeAgainAfterALossOfTheLink) {
  world_.Push(10);
  world_.loop.Run();
  world_.LinkBreaks();
  world_.LinkComesUp();
  world_.Push(10);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1, 1}));
  EXPECT_EQ(world_.guard.counters().dropped_offline_busy, 0U);
}

TEST_F(RecordsInLine, IsFreeAgainAfterARefusal) {
  world_.Push(10);
  world_.loop.Run();
  world_.Acknowledge(false);
  world_.Push(10);
  world_.loop.Run();
  EXPECT_EQ(world_.history, (Plates{1, 1}));
}

TEST_F(RecordsInLine, ThatNobodyHeardAreNotConfirmedAndEndTheirChain) {
  world_.Push(10);
  world_.loop.Run();
  world_.AcknowledgeUnheard();
  EXPECT_TRUE(world_.store.marked.empty());
  EXPECT_TRUE(world_.later.empty());
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

class RequestsDuringRedelivery : public RecordsInLine,
                                 public ::testing::WithParamInterface<RequestCase> {};

TEST_P(RequestsDuringRedelivery, WithholdsTheAcknowledgementJustWhenTheQueueWasEmptied) {
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

INSTANTIATE_TEST_SUITE_P(All, RequestsDuringRedelivery,
                         ::testing::Values(RequestCase{"check_offline_record", "stop", true},
                                           RequestCase{"check_offline_record", "push", true},
                                           RequestCase{"check_offline_record", "push 0", true},
                                           RequestCase{"check_offline_record", "push 5", false},
                                           RequestCase{"check_offline_record", "push -1", false},
                                           RequestCase{"check_offline_record", "clear", false},
                                           RequestCase{"gpio_out", "stop", false}));

TEST_F(RecordsInLine, SurvivesPayloadsOfAnyShape) {
  Sent sent;
  sent.tag = 16;
  world_.guard.OnPublished(900, sent);
  EXPECT_FALSE(world_.guard.MayPublish(16, Json::Value(Json::arrayValue)));
  world_.guard.OnRequestCarriedOut("check_offline_record", Json::Value(5));
  world_.guard.OnRequestCarriedOut("check_offline_record", OfflineRequest(""));
  world_.guard.OnAcknowledged(900, Answer::kTaken);
  EXPECT_EQ(world_.guard.counters().withheld_acks, 1U);
}

}  // namespace
}  // namespace mqttadapter_host
