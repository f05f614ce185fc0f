// What arrives on the bus, and what the adapter posts to itself.
#include "adapter_test.h"

namespace {

class BusRouting : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
};

TEST_F(BusRouting, LogsEveryMessage) {
  Deliver("SOMETHING_ELSE", "text");
  EXPECT_EQ(LogLines(), std::vector<std::string>{"7  OnDpMessage rcv msg mothod:SOMETHING_ELSE "});
  EXPECT_EQ(LoggedBy("OnDpMessage", 7, " OnDpMessage rcv msg mothod:SOMETHING_ELSE "), 1U);
}

TEST_F(BusRouting, RefusesAResultOfTheWrongSize) {
  for (const size_t size : {0U, 551U, 553U, 556U, 1104U}) {
    ForgetLogs();
    Deliver("BUS_SRV_IVS_RESULT", std::string(size, 'A'));
    EXPECT_EQ(LogLines(3),
              std::vector<std::string>{"The size is not equal sizeof(IVS_RESULT_PARAM)"});
    EXPECT_EQ(Waiting(), "nothing");
  }
}

TEST_F(BusRouting, PostsThePublishingOfAResult) {
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  EXPECT_EQ(Waiting(), "199401@0");
  EXPECT_FALSE(events_->pending.front().time_sensitive);
  EXPECT_FALSE(events_->pending.front().message.data);
  EXPECT_EQ(Published(), "nothing");
  RunPosted();
  EXPECT_EQ(PublishedHead(), "ivs_result 11");
  PublishedPayload();
}

TEST_F(BusRouting, IgnoresLaneControlWithoutResults) {
  for (const char* body :
       {"", "no json", "{}", R"({"result":[]})", "[]", "5", "null", "\"results\""}) {
    Deliver("BUS_SRV_LANECTRL_RESULT", body);
  }
  EXPECT_EQ(LogLines(6).size(), 0U);
  EXPECT_EQ(LogLines(3).size(), 0U);
}

TEST_F(BusRouting, PassesLaneControlWithResultsOn) {
  Deliver("BUS_SRV_LANECTRL_RESULT", R"({"results":[]})");
  EXPECT_EQ(LoggedBy("OnDpMessage", 6, R"(lanectrl_result start :{"results":[]}.)"), 1U);
  EXPECT_EQ(PublishedHead(), "lanectrl_result 12");
  PublishedPayload();
}

TEST_F(BusRouting, IgnoresOtherPostedMessages) {
  for (const unsigned int id : {0U, 199400U, 199404U, 199406U}) {
    events_->Post(dynamic_cast<tarvex::MessageHandler*>(adapter_), id, nullptr, false);
  }
  RunPosted();
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(BusRouting, APostedStopWithoutDataDoesNothing) {
  events_->Post(dynamic_cast<tarvex::MessageHandler*>(adapter_), 199405, nullptr, false);
  RunPosted();
  EXPECT_TRUE(LogLines(3).empty());
}

TEST_F(BusRouting, PublishingWithNothingQueuedDoesNothing) {
  events_->Post(dynamic_cast<tarvex::MessageHandler*>(adapter_), 199401, nullptr, false);
  RunPosted();
  EXPECT_EQ(Published(), "nothing");
}

}  // namespace
