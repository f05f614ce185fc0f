#include "platform/bus_inbox.h"

#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include "manual_event_service.h"

namespace {

using tarvex::BusInbox;
using testing::HasSubstr;

class BusInboxTest : public testing::Test, public tarvex::MessageHandler {
 protected:
  ~BusInboxTest() override { inbox_->Close(); }

  void OnMessage(tarvex::Message*) override {}

  void Arrive(std::size_t count, std::size_t length = 1) {
    const std::string body(length, 'x');
    for (std::size_t number = 0; number < count; ++number) {
      inbox_->Accept(topic_, body.data(), body.size());
    }
  }

  boost::shared_ptr<ManualEventService> events_ = boost::make_shared<ManualEventService>();
  std::shared_ptr<BusInbox> inbox_ = std::make_shared<BusInbox>(events_, this);
  std::shared_ptr<tarvex::BusTopic> topic_ = std::make_shared<tarvex::BusTopic>("topic");
};

TEST_F(BusInboxTest, HoldsSoManyMessagesAndDropsTheRest) {
  Arrive(5000);
  EXPECT_EQ(events_->waiting(), 4096U);
  EXPECT_EQ(inbox_->dropped(), 904U);
}

TEST_F(BusInboxTest, HoldsSoManyBytesAndDropsTheRest) {
  Arrive(100, std::size_t{1} << 20U);
  EXPECT_EQ(events_->waiting(), 64U);
  Arrive(1, 0);
  EXPECT_EQ(events_->waiting(), 65U);
}

TEST_F(BusInboxTest, HasRoomAgainForEachThatWasTaken) {
  Arrive(4096);
  events_->Deliver();
  Arrive(4096);
  EXPECT_EQ(events_->waiting(), 4096U);
  EXPECT_EQ(inbox_->dropped(), 0U);
}

TEST_F(BusInboxTest, LogsAnEpisodeOfDroppingOnce) {
  testing::internal::CaptureStderr();
  Arrive(5000);
  const std::string during = testing::internal::GetCapturedStderr();
  EXPECT_THAT(during, HasSubstr("dropping, first of topic"));
  EXPECT_EQ(during.find('\n'), during.rfind('\n'));

  testing::internal::CaptureStderr();
  events_->Deliver();
  const std::string after = testing::internal::GetCapturedStderr();
  EXPECT_THAT(after, HasSubstr("904 dropped so far"));
  EXPECT_EQ(after.find('\n'), after.rfind('\n'));
}

TEST_F(BusInboxTest, TakesNothingOnceClosedAndDropsWhatWaits) {
  Arrive(2);
  inbox_->Close();
  EXPECT_EQ(events_->waiting(), 0U);
  Arrive(1);
  EXPECT_EQ(events_->waiting(), 0U);
}

TEST_F(BusInboxTest, LetsGoOfTheEventServiceOnceClosed) {
  inbox_->Close();
  EXPECT_EQ(events_.use_count(), 1);
}

TEST_F(BusInboxTest, TakesNothingOfATopicThatIsNotListenedToAnyMore) {
  topic_->listened = false;
  Arrive(1);
  EXPECT_EQ(events_->waiting(), 0U);
}

}  // namespace
