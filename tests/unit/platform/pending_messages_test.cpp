#include "platform/pending_messages.h"

#include <string>

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

namespace {

using std::chrono::milliseconds;
using tarvex::Message;
using tarvex::PendingMessages;

struct NamedHandler : tarvex::MessageHandler {
  explicit NamedHandler(char handler_name) : name(handler_name) {}
  void OnMessage(Message*) override {}
  char name;
};

/// The clock is `now_`, turned by hand. A message reads as its handler and id: "a1".
class PendingMessagesTest : public testing::Test {
 protected:
  void Posted(NamedHandler& handler, unsigned int id) { pending_.Add({&handler, id, {}}, false); }
  void PostedUrgently(NamedHandler& handler, unsigned int id) {
    pending_.Add({&handler, id, {}}, true);
  }
  void PostedFor(int delay_ms, NamedHandler& handler, unsigned int id) {
    pending_.AddDelayed({&handler, id, {}}, now_ + milliseconds(delay_ms));
  }
  void Pass(int duration_ms) { now_ += milliseconds(duration_ms); }

  std::string Arrivals() {
    pending_.TakeDue(now_);
    std::string names;
    while (const auto message = pending_.TakeNext()) {
      names += Name(*message) + " ";
    }
    return names;
  }

  static std::string Name(const Message& message) {
    return static_cast<NamedHandler*>(message.handler)->name + std::to_string(message.message_id);
  }
  static std::string Names(const std::list<Message>& messages) {
    std::string names;
    for (const Message& message : messages) {
      names += Name(message) + " ";
    }
    return names;
  }

  PendingMessages pending_;
  PendingMessages::TimePoint now_{milliseconds(1000)};
  NamedHandler a_{'a'};
  NamedHandler b_{'b'};
};

TEST_F(PendingMessagesTest, ArriveInTheOrderPosted) {
  Posted(a_, 1);
  Posted(b_, 1);
  Posted(a_, 2);
  EXPECT_EQ(Arrivals(), "a1 b1 a2 ");
}

TEST_F(PendingMessagesTest, TimeSensitiveOnesOvertakeTheOthersOnly) {
  Posted(a_, 1);
  PostedUrgently(b_, 1);
  PostedUrgently(b_, 2);
  EXPECT_EQ(Arrivals(), "b1 b2 a1 ");
}

TEST_F(PendingMessagesTest, DelayedOnesArriveWhenTheirTimeHasCome) {
  PostedFor(5000, a_, 1);
  Pass(4999);
  EXPECT_EQ(Arrivals(), "");
  Pass(1);
  EXPECT_EQ(Arrivals(), "a1 ");
}

TEST_F(PendingMessagesTest, DelayedOnesArriveByTimeAndThenByOrder) {
  PostedFor(20, a_, 1);
  PostedFor(10, a_, 2);
  PostedFor(20, a_, 3);
  Pass(20);
  EXPECT_EQ(Arrivals(), "a2 a1 a3 ");
}

TEST_F(PendingMessagesTest, DelayedOnesLineUpBehindThoseThatWaitAlready) {
  PostedFor(10, a_, 1);
  Posted(b_, 1);
  Pass(10);
  EXPECT_EQ(Arrivals(), "b1 a1 ");
}

TEST_F(PendingMessagesTest, TheNextTimeIsThatOfTheEarliest) {
  EXPECT_FALSE(pending_.NextDue());
  PostedFor(20, a_, 1);
  PostedFor(10, a_, 2);
  EXPECT_EQ(pending_.NextDue(), now_ + milliseconds(10));
}

TEST_F(PendingMessagesTest, ADelayedMessageIsNotInLineBeforeItIsDue) {
  PostedFor(10, a_, 1);
  EXPECT_FALSE(pending_.HasNext());
  pending_.TakeDue(now_ + milliseconds(10));
  EXPECT_TRUE(pending_.HasNext());
}

TEST_F(PendingMessagesTest, RemovalTakesOneHandlersMessagesOfOneId) {
  Posted(a_, 1);
  Posted(a_, 2);
  Posted(b_, 1);
  pending_.Remove(&a_, 1);
  EXPECT_EQ(Arrivals(), "a2 b1 ");
}

TEST_F(PendingMessagesTest, RemovalFindsUrgentOrdinaryAndDelayedOnes) {
  PostedFor(10, a_, 1);
  Posted(a_, 1);
  PostedUrgently(a_, 1);
  EXPECT_EQ(pending_.Remove(&a_, 1).size(), 3U);
  Pass(10);
  EXPECT_EQ(Arrivals(), "");
}

TEST_F(PendingMessagesTest, RemovalHandsTheMessagesBackWithTheirData) {
  const auto data = boost::make_shared<tarvex::MessageData>();
  pending_.Add({&a_, 1, data}, false);
  const std::list<Message> removed = pending_.Remove(&a_, 1);
  ASSERT_EQ(Names(removed), "a1 ");
  EXPECT_EQ(removed.front().data, data);
}

TEST_F(PendingMessagesTest, RemovingAllLeavesNothing) {
  Posted(a_, 1);
  PostedUrgently(a_, 2);
  PostedFor(10, b_, 1);
  EXPECT_EQ(Names(pending_.RemoveAll()), "a2 a1 b1 ");
  Pass(10);
  EXPECT_EQ(Arrivals(), "");
}

}  // namespace
