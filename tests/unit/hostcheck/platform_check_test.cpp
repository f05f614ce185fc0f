// Each way in which a platform can be wrong, and what the check says.
#include "hostcheck/platform_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include <boost/make_shared.hpp>

#include "fake_platform.h"
#include "hostcheck/checks.h"

namespace hostcheck {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// An event service that is wrong in what a test says.
class Events : public fake::EventService {
 public:
  void Post(tarvex::MessageHandler* handler, unsigned int id,
            boost::shared_ptr<tarvex::MessageData> data, bool time_sensitive) override {
    if (time_sensitive ? urgent_go_first : others_go_first) {
      pending.push_front({0, time_sensitive, {handler, id, data}});
    } else {
      fake::EventService::Post(handler, id, data, time_sensitive);
    }
    if (keeps_data) {
      kept.push_back(data);
    }
  }
  void PostDelayed(int delay_ms, tarvex::MessageHandler* handler, unsigned int id,
                   boost::shared_ptr<tarvex::MessageData> data) override {
    fake::EventService::PostDelayed(ignores_delays ? 0 : delay_ms, handler, id, data);
  }
  void Clear(tarvex::MessageHandler* handler, unsigned int id,
             std::list<tarvex::Message>* removed) override {
    if (clears_nothing) {
      return;
    }
    std::list<tarvex::Message> own;
    fake::EventService::Clear(handler, id, &own);
    if (keeps_cleared) {
      for (const tarvex::Message& message : own) {
        kept.push_back(message.data);
      }
    }
    if (removed != nullptr && !removes_in_silence) {
      removed->splice(removed->end(), own);
    }
    if (clears_the_next_id) {
      fake::EventService::Clear(handler, id + 2, nullptr);
    }
  }

  bool urgent_go_first = false;
  bool others_go_first = false;
  bool ignores_delays = false;
  bool keeps_data = false;
  bool keeps_cleared = false;
  bool clears_nothing = false;
  bool clears_the_next_id = false;
  bool removes_in_silence = false;
  std::vector<boost::shared_ptr<tarvex::MessageData>> kept;
};

/// A bus on which nobody answers.
class Bus : public tarvex::DpClient {
 public:
  int SendRequest(const std::string&, int, const char*, std::size_t, std::string* reply,
                  int timeout_ms) override {
    std::this_thread::sleep_for(std::chrono::milliseconds(timeout_ms * percent / 100));
    if (changes_reply) {
      reply->clear();
    }
    return result;
  }
  int ListenMessage(const std::string&, int) override { return 0; }
  int RemoveListenMessage(const std::string&) override { return 0; }

  int percent = 101;  // of the timeout: how long it waits
  bool changes_reply = false;
  int result = 0;
};

class PlatformCheckTest : public ::testing::Test {
 protected:
  PlatformCheckTest() { fake::ResetPlatform(); }

  void LetTimePass() {
    for (int i = 0; i < 100 && !is_over_; ++i) {
      events_->Tick(10);
    }
  }

  /// What is broken in the platform.
  std::vector<std::string> Broken() {
    std::vector<std::string> broken;
    PlatformCheck check(events_, bus_, [&](const PlatformCheck::Verdicts& verdicts) {
      for (const PlatformVerdict& verdict : verdicts) {
        if (!verdict.is_exercised) {
          not_exercised_.push_back(verdict.check);
        } else if (!verdict.broken.empty()) {
          broken.push_back(verdict.check);
        }
      }
      is_over_ = true;
    });
    check.Begin();
    if (is_on_another_thread_) {
      std::thread([this] { LetTimePass(); }).join();
    } else {
      LetTimePass();
    }
    EXPECT_TRUE(is_over_);
    events_->pending.clear();
    return broken;
  }

  const boost::shared_ptr<Events> events_ = boost::make_shared<Events>();
  const boost::shared_ptr<Bus> bus_ = boost::make_shared<Bus>();
  std::vector<std::string> not_exercised_;
  bool is_on_another_thread_ = false;
  bool is_over_ = false;
};

TEST_F(PlatformCheckTest, FindsNothingWrongWithAGoodOne) {
  EXPECT_THAT(Broken(), IsEmpty());
  EXPECT_THAT(not_exercised_, IsEmpty());
}

TEST_F(PlatformCheckTest, LetsUrgentMessagesOvertake) {
  events_->urgent_go_first = true;  // which turns them round, too
  EXPECT_THAT(Broken(), ElementsAre(kEventsUrgent));
}

TEST_F(PlatformCheckTest, LeavesNothingBehind) {
  {
    PlatformCheck check(events_, bus_, [](const PlatformCheck::Verdicts&) {});
    check.Begin();
  }
  EXPECT_TRUE(events_->pending.empty());
}

TEST_F(PlatformCheckTest, FindsDelaysThatAreNotKept) {
  events_->ignores_delays = true;
  EXPECT_THAT(Broken(), ElementsAre(kEventsDelayed));
}

TEST_F(PlatformCheckTest, FindsMessagesThatAreTurnedRound) {
  events_->others_go_first = true;
  EXPECT_THAT(Broken(), testing::Contains(kEventsInOrder));
}

TEST_F(PlatformCheckTest, FindsMessagesThatComeOnAnotherThread) {
  is_on_another_thread_ = true;
  EXPECT_THAT(Broken(), ElementsAre(kEventsThread));
}

TEST_F(PlatformCheckTest, FindsMessagesOfAnotherIdThatAreClearedToo) {
  events_->clears_the_next_id = true;
  EXPECT_THAT(Broken(), testing::Contains(kEventsCleared));
}

TEST_F(PlatformCheckTest, FindsDataThatIsKeptAfterDelivery) {
  events_->keeps_data = true;
  EXPECT_THAT(Broken(), testing::IsSupersetOf({kEventsReleased}));
}

TEST_F(PlatformCheckTest, FindsDataThatIsKeptWhenItIsCleared) {
  events_->keeps_cleared = true;
  EXPECT_THAT(Broken(), ElementsAre(kEventsCleared));
}

TEST_F(PlatformCheckTest, FindsMessagesThatAreDeliveredAlthoughCleared) {
  events_->clears_nothing = true;
  EXPECT_THAT(Broken(), ElementsAre(kEventsCleared, kEventsRemoved));
}

TEST_F(PlatformCheckTest, FindsRemovedMessagesThatAreNotHandedOver) {
  events_->removes_in_silence = true;
  EXPECT_THAT(Broken(), ElementsAre(kEventsRemoved));
}

TEST_F(PlatformCheckTest, FindsAReplyThatIsChangedWithoutAnAnswer) {
  bus_->changes_reply = true;
  EXPECT_THAT(Broken(), ElementsAre(kBusReply));
}

TEST_F(PlatformCheckTest, FindsARequestThatEndsBeforeItsTime) {
  bus_->percent = 60;
  EXPECT_THAT(Broken(), ElementsAre(kBusTimeout));
}

TEST_F(PlatformCheckTest, SeesNothingOfTimeWhereTheBusKnowsThatNobodyIsThere) {
  bus_->percent = 0;
  EXPECT_THAT(Broken(), IsEmpty());
  EXPECT_THAT(not_exercised_, ElementsAre(kBusTimeout));
}

TEST_F(PlatformCheckTest, SeesNothingOfTheBusWhereSomebodyAnswers) {
  bus_->result = 1;
  EXPECT_THAT(Broken(), IsEmpty());
  EXPECT_THAT(not_exercised_, ElementsAre(kBusReply, kBusTimeout));
}

TEST_F(PlatformCheckTest, FindsAKeyThatIsReadAlthoughItIsNotThere) {
  fake::ThePlatform().databases["skvdb"]["hostcheck_no_such_key"] = "value";
  EXPECT_THAT(Broken(), ElementsAre(kDatabaseMissingKey));
}

TEST_F(PlatformCheckTest, SeesNothingOfADatabaseThatIsNotThere) {
  fake::ThePlatform().missing_databases.insert("skvdb");
  EXPECT_THAT(Broken(), IsEmpty());
  EXPECT_THAT(not_exercised_, ElementsAre(kDatabaseMissingKey));
}

TEST_F(PlatformCheckTest, FindsTextThatIsNotMadeOfJson) {
  fake::ThePlatform().serialising_fails = true;
  EXPECT_THAT(Broken(), ElementsAre(kJsonText));
}

}  // namespace
}  // namespace hostcheck
