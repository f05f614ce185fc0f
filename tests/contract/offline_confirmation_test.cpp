// What the confirmation of a re-delivered result sets off.
#include "offline_fixture.h"

namespace {

class OfflineConfirmation : public OfflineTest {};

TEST_F(OfflineConfirmation, MarksTheRecordAndPostsTheNextStepAfterFiveSeconds) {
  StoreCounts(2);
  StoreHandsOut({11, 12});
  Push(10);
  RunPosted();
  BusHeard();
  BusHeard();
  Redelivered();
  adapter_->OnMessagePublished(16);
  EXPECT_EQ(BusHeard(), Delivered(11));
  EXPECT_EQ(Waiting(), "199402@5000");
  events_->Tick(4999);
  EXPECT_EQ(Published(), "nothing");
  events_->Tick(1);
  EXPECT_EQ(BusHeard(), "nothing");  // the second one is in the queue already
  EXPECT_EQ(Redelivered(), 12U);
}

TEST_F(OfflineConfirmation, DrivesEachOfTwoChains) {
  StoreCounts(2);
  StoreHandsOut({11, 12});
  Push(10);
  Push(10);
  RunPosted();
  BusHeard();
  BusHeard();
  EXPECT_EQ(Redelivered(), 11U);
  EXPECT_EQ(Redelivered(), 11U);
  adapter_->OnMessagePublished(16);
  adapter_->OnMessagePublished(16);
  EXPECT_EQ(BusHeard(), Delivered(11));
  EXPECT_EQ(BusHeard(), Delivered(12));  // each confirmation means the first one now
  EXPECT_EQ(Waiting(), "199402@5000, 199402@5000");
}

TEST_F(OfflineConfirmation, IsWaitedForForEver) {
  StoreCounts(2);
  StoreHandsOut({11, 12});
  Push(10);
  RunPosted();
  BusHeard();
  BusHeard();
  Redelivered();
  events_->Tick(3600000);
  EXPECT_EQ(BusHeard(), "nothing");
}

TEST_F(OfflineConfirmation, WithAnEmptyQueueFetchesFirst) {
  StoreHandsOut({21});
  adapter_->OnMessagePublished(16);
  EXPECT_EQ(BusHeard(), Select("5"));
  EXPECT_EQ(BusHeard(), Delivered(21));
  EXPECT_EQ(Waiting(), "199402@5000");
}

TEST_F(OfflineConfirmation, WithNothingToBeHadDoesNothing) {
  adapter_->OnMessagePublished(16);
  EXPECT_EQ(BusHeard(), Select("5"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "nothing");
}

TEST_F(OfflineConfirmation, IsFollowedByTheNextStepWhateverTheStoreSays) {
  StoreCounts(1);
  StoreHandsOut({11});
  Push(1);
  RunPosted();
  BusHeard();
  BusHeard();
  Redelivered();
  AnswersNext("BUS_GET_IVS_INFO", "no json", -1);
  adapter_->OnMessagePublished(16);
  EXPECT_EQ(BusHeard(), Delivered(11));
  EXPECT_EQ(Waiting(), "199402@5000");
}

TEST_F(OfflineConfirmation, RemovesAnOlderRecordOfTheSameId) {
  StoreCounts(3);
  StoreHandsOut({5, 6, 5});  // delivered from the left; the last one is the oldest queued
  Push(3);
  RunPosted();
  BusHeard();
  BusHeard();
  EXPECT_EQ(Redelivered(), 5U);
  adapter_->OnMessagePublished(16);
  BusHeard();
  events_->Tick(5000);
  EXPECT_EQ(Redelivered(), 5U);  // left: 5, 6
  adapter_->OnMessagePublished(16);
  BusHeard();
  events_->Tick(5000);
  EXPECT_EQ(Redelivered(), 6U);
}

TEST_F(OfflineConfirmation, OfALiveResultLeavesStoredRecordsAlone) {
  StoreCounts(1);
  StoreHandsOut({11});
  Push(1);
  RunPosted();
  BusHeard();
  BusHeard();
  Redelivered();
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes().PlateId(11));
  RunPosted();
  PublishedPayload();
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), Delivered(11));
  adapter_->OnMessagePublished(16);
  EXPECT_EQ(BusHeard(), Delivered(11));
}

TEST_F(OfflineConfirmation, OfTheNoticeDoesNothing) {
  adapter_->OnMessagePublished(17);
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "nothing");
}

}  // namespace
