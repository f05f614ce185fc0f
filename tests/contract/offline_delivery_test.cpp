// The re-delivery of stored results: what a step fetches and publishes, and how a run
// ends.
#include "offline_fixture.h"

namespace {

class OfflineDelivery : public OfflineTest {};

TEST_F(OfflineDelivery, PublishesTheFirstRecordOfTheStore) {
  StoreCounts(2);
  StoreHandsOut({11, 12});
  Push(10);
  RunPosted();
  EXPECT_EQ(BusHeard(), kCount);
  EXPECT_EQ(BusHeard(), Select("5"));
  EXPECT_EQ(Redelivered(), 11U);
  EXPECT_EQ(Waiting(), "nothing");  // until the confirmation
}

TEST_F(OfflineDelivery, LogsCountsAndFetches) {
  StoreCounts(2);
  StoreHandsOut({11, 12});
  Push(10);
  ForgetLogs();
  RunPosted();
  BusHeard();
  BusHeard();
  Redelivered();
  EXPECT_EQ(LoggedBy("GetCountOfflineRecords", 6, "mqtt offline count 2"), 1U);
  EXPECT_EQ(LoggedBy("OnMessage", 6, "offline_count : 2"), 1U);
  EXPECT_EQ(LoggedBy("StartCheckOfflineRecords", 6, "get 2 mqtt offline record from db."), 1U);
  EXPECT_EQ(LogSources(), (std::set<std::string>{"mqtt_adapter", "mqtt_offline"}));
}

TEST_F(OfflineDelivery, LogsOfTheManagerCarryItsOwnName) {
  StoreCounts(2);
  StoreHandsOut({});
  Push(10);
  RunPosted();
  BusHeard();
  BusHeard();
  for (const auto& entry : platform().logs) {
    const bool of_manager =
        entry.text == "mqtt offline count 2" || entry.text == "get 0 mqtt offline record from db.";
    EXPECT_EQ(entry.source, of_manager ? "mqtt_offline" : "mqtt_adapter") << entry.text;
  }
  EXPECT_EQ(Logged(6, "get 0 mqtt offline record from db."), 1U);
}

TEST_F(OfflineDelivery, AStepWithRecordsQueuedCountsTheQueue) {
  StoreCounts(9);
  StoreHandsOut({11, 12, 13});
  Push(10);
  RunPosted();
  BusHeard();
  BusHeard();
  Redelivered();
  adapter_->OnMessagePublished(16);
  BusHeard();
  ForgetLogs();
  events_->Tick(5000);
  Redelivered();
  EXPECT_EQ(Logged(6, "offline_count : 2"), 1U);
  EXPECT_EQ(Logged(6, "mqtt offline count 2"), 0U);
}

TEST_F(OfflineDelivery, EndsWithTheCountNotice) {
  StoreCounts(3);
  StoreHandsOut({11, 12, 13});
  Push(10);
  RunPosted();
  BusHeard();
  BusHeard();
  for (const unsigned int plate_id : {11U, 12U, 13U}) {
    EXPECT_EQ(Redelivered(), plate_id);
    adapter_->OnMessagePublished(16);
    EXPECT_EQ(BusHeard(), Delivered(plate_id));
    if (plate_id == 13U) {
      StoreCounts(0);
      StoreCounts(0);
    }
    events_->Tick(5000);
  }
  EXPECT_EQ(BusHeard(), kCount);
  EXPECT_EQ(Waiting(), "199403@20000");
  EXPECT_EQ(
      TickQuietly(5000),
      "\033[31m SUB_OFFLINE_RECORD:{\n\t\"body\" : \n\t{\n\t\t\"offline_record\" : 0\n\t}\n}\n"
      " \033[0m \n");
  EXPECT_EQ(BusHeard(), kCount);
  EXPECT_EQ(Published(), R"(offline_record 17 {"body":{"offline_record":0}})");
  EXPECT_EQ(Waiting(), "nothing");
}

TEST_F(OfflineDelivery, FetchesAgainWhenTheQueueIsEmptyAndTheRunAllows) {
  StoreCounts(7);
  StoreHandsOut({1, 2, 3, 4, 5});
  Push(7);
  RunPosted();
  BusHeard();
  EXPECT_EQ(BusHeard(), Select("5"));
  for (unsigned int plate_id = 1; plate_id <= 5; ++plate_id) {
    EXPECT_EQ(Redelivered(), plate_id);
    adapter_->OnMessagePublished(16);
    BusHeard();
    if (plate_id == 5) {
      StoreCounts(2);
      StoreHandsOut({6, 7});
    }
    events_->Tick(5000);
  }
  EXPECT_EQ(BusHeard(), kCount);
  EXPECT_EQ(BusHeard(), Select("2"));
  EXPECT_EQ(Redelivered(), 6U);
}

TEST_F(OfflineDelivery, EndsWhenTheRunsLimitIsUsedUp) {
  StoreCounts(9);
  StoreHandsOut({1});
  Push(1);
  RunPosted();
  BusHeard();
  EXPECT_EQ(BusHeard(), Select("1"));
  Redelivered();
  adapter_->OnMessagePublished(16);
  BusHeard();
  StoreCounts(8);
  events_->Tick(5000);
  EXPECT_EQ(BusHeard(), kCount);
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "199403@10000");
  StoreCounts(8);
  TickQuietly(5000);
  BusHeard();
  EXPECT_EQ(Published(), R"(offline_record 17 {"body":{"offline_record":8}})");
}

TEST_F(OfflineDelivery, AStepWithNothingStoredPostsTheNotice) {
  StoreCounts(0);
  Push(10);
  RunPosted();
  EXPECT_EQ(BusHeard(), kCount);
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "199403@5000");
  EXPECT_FALSE(events_->pending.front().message.data);
}

TEST_F(OfflineDelivery, ANegativeCountIsNothingToSend) {
  StoreCounts(-4);
  Push(10);
  RunPosted();
  BusHeard();
  EXPECT_EQ(Logged(6, "offline_count : -4"), 1U);
  EXPECT_EQ(Waiting(), "199403@5000");
}

TEST_F(OfflineDelivery, ACountThatIsNoIntegerIsZero) {
  for (const char* reply :
       {"", "no json", "{}", "[]", "5", R"({"body":{"offline_count":"7"}})",
        R"({"body":{"offline_count":null}})", R"({"body":[]})", R"({"offline_count":7})"}) {
    ForgetLogs();
    AnswersNext("BUS_GET_IVS_INFO", reply);
    Push(10);
    RunPosted();
    BusHeard();
    EXPECT_EQ(Logged(6, "offline_count : 0"), 1U) << reply;
    EXPECT_EQ(LogLines(6).size(), 1U) << reply;
    EXPECT_EQ(Waiting(), "199403@5000");
    events_->pending.clear();
  }
}

TEST_F(OfflineDelivery, GoesByTheRepliesNotByTheResultsOfTheSends) {
  AnswersNext("BUS_GET_IVS_INFO", R"({"body":{"offline_count":1}})", -1);
  AnswersNext("BUS_GET_IVS_INFO", RecordBytes().PlateId(4).str() + "tail", 0);
  Push(10);
  RunPosted();
  BusHeard();
  BusHeard();
  EXPECT_EQ(Redelivered(), 4U);
}

TEST_F(OfflineDelivery, AReplyOfOddLengthIsDroppedWhole) {
  for (const size_t size : {1U, 552U, 555U, 557U, 1000U}) {
    ForgetLogs();
    StoreCounts(2);
    AnswersNext("BUS_GET_IVS_INFO", std::string(size, 'A'));
    Push(3);
    RunPosted();
    BusHeard();
    EXPECT_EQ(BusHeard(), Select("3"));
    EXPECT_EQ(Waiting(), "199403@5000") << size;
    EXPECT_EQ(LogLines(6).size(), 2U);  // both counts
    events_->pending.clear();
  }
}

TEST_F(OfflineDelivery, MoreRecordsThanAskedForWrapTheLimit) {
  StoreCounts(9);
  StoreHandsOut({1, 2});
  Push(1);
  RunPosted();
  BusHeard();
  BusHeard();
  for (const unsigned int plate_id : {1U, 2U}) {
    EXPECT_EQ(Redelivered(), plate_id);
    adapter_->OnMessagePublished(16);
    BusHeard();
    if (plate_id == 2U) {
      StoreCounts(1);
      StoreHandsOut({3});
    }
    events_->Tick(5000);
  }
  BusHeard();
  EXPECT_EQ(BusHeard(), Select("5"));
  EXPECT_EQ(Redelivered(), 3U);
}

TEST_F(OfflineDelivery, TheNoticeCountsTheQueueWhileItHoldsRecords) {
  StoreCounts(2);
  StoreHandsOut({11, 12});
  Push(10);
  RunPosted();
  BusHeard();
  BusHeard();
  Redelivered();
  Console([this] { adapter_->SubscribeMessage("offline_record"); });
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Published(), R"(offline_record 17 {"body":{"offline_record":2}})");
}

class OfflineDeliveryWithoutManager : public AdapterTest {};

TEST_F(OfflineDeliveryWithoutManager, EveryStepDoesNothing) {
  platform().has_bus = false;
  Start();
  for (const unsigned int id : {199402U, 199403U}) {
    events_->Post(dynamic_cast<tarvex::MessageHandler*>(adapter_), id, nullptr, false);
  }
  RunPosted();
  adapter_->OnMessagePublished(11);
  adapter_->OnMessagePublished(16);
  EXPECT_EQ(Waiting(), "nothing");
  EXPECT_EQ(Published(), "nothing");
}

}  // namespace
