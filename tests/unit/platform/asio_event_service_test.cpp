#include "platform/asio_event_service.h"

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/asio/post.hpp>
#include <boost/make_shared.hpp>

#include "scoped_environment.h"
#include "support/wait_until.h"

namespace {

using std::chrono::milliseconds;
using tarvex::AsioEventService;
using tarvex::Message;
using testing::ElementsAre;
using testing::HasSubstr;

/// Does with each message what the test gave it to do.
struct Handler : tarvex::MessageHandler {
  explicit Handler(std::function<void(Message*)> what_to_do) : on_message(std::move(what_to_do)) {}
  void OnMessage(Message* msg) override { on_message(msg); }
  std::function<void(Message*)> on_message;
};

/// The test's own thread runs the service, from RunToTheEnd() until the message or
/// task that was posted last in line has come.
class AsioEventServiceTest : public testing::Test {
 protected:
  void RunToTheEnd() {
    service_.PostTask([this] { service_.Stop(); });
    service_.Run();
  }

  static AsioEventService::TimePoint InALongTime() {
    return std::chrono::steady_clock::now() + std::chrono::minutes(10);
  }

  AsioEventService service_;
  std::vector<unsigned int> arrived_;
  Handler noting_{[this](Message* msg) { arrived_.push_back(msg->message_id); }};
};

TEST_F(AsioEventServiceTest, DeliversInTheOrderPosted) {
  service_.Post(&noting_, 1, {}, false);
  service_.Post(&noting_, 2, {}, false);
  service_.Post(&noting_, 3, {}, false);
  RunToTheEnd();
  EXPECT_THAT(arrived_, ElementsAre(1, 2, 3));
}

TEST_F(AsioEventServiceTest, LetsTimeSensitiveMessagesOvertake) {
  service_.Post(&noting_, 1, {}, false);
  service_.Post(&noting_, 2, {}, true);
  RunToTheEnd();
  EXPECT_THAT(arrived_, ElementsAre(2, 1));
}

TEST_F(AsioEventServiceTest, RunsTasksInOrderWithTheMessages) {
  service_.Post(&noting_, 1, {}, false);
  service_.PostTask([this] { arrived_.push_back(2); });
  service_.Post(&noting_, 3, {}, false);
  RunToTheEnd();
  EXPECT_THAT(arrived_, ElementsAre(1, 2, 3));
}

TEST_F(AsioEventServiceTest, KeepsATaskBehindAnEarlierMessageThatIsOvertaken) {
  service_.Post(&noting_, 1, {}, false);
  service_.PostTask([this] { arrived_.push_back(2); });
  service_.Post(&noting_, 3, {}, true);
  RunToTheEnd();
  EXPECT_THAT(arrived_, ElementsAre(3, 1, 2));
}

TEST_F(AsioEventServiceTest, HandsTheDataToTheHandlerAndLetsGoOfIt) {
  const auto data = boost::make_shared<tarvex::MessageData>();
  boost::shared_ptr<tarvex::MessageData> received;
  Handler keeping([&](Message* msg) { received = msg->data; });
  service_.Post(&keeping, 1, data, false);
  RunToTheEnd();
  EXPECT_EQ(received, data);
  EXPECT_EQ(data.use_count(), 2);
}

TEST_F(AsioEventServiceTest, DeliversFromOtherThreadsOnItsOwn) {
  const auto own = std::this_thread::get_id();
  std::thread::id delivered_on;
  Handler noting_thread([&](Message*) {
    delivered_on = std::this_thread::get_id();
    service_.Stop();
  });
  std::thread other([&] { service_.Post(&noting_thread, 1, {}, false); });
  service_.Run();
  other.join();
  EXPECT_EQ(delivered_on, own);
}

TEST_F(AsioEventServiceTest, DeliversWhatIsPostedDuringADelivery) {
  Handler posting([this](Message*) { service_.Post(&noting_, 2, {}, false); });
  Handler stopping([this](Message*) { service_.Stop(); });
  service_.Post(&posting, 1, {}, false);
  service_.PostTask([&] { service_.PostTask([&] { service_.Stop(); }); });
  service_.Run();
  EXPECT_THAT(arrived_, ElementsAre(2));
}

TEST_F(AsioEventServiceTest, DeliversNothingThatWasCleared) {
  service_.Post(&noting_, 1, {}, false);
  service_.Post(&noting_, 2, {}, false);
  service_.Post(&noting_, 1, {}, true);
  service_.Clear(&noting_, 1, nullptr);
  RunToTheEnd();
  EXPECT_THAT(arrived_, ElementsAre(2));
}

TEST_F(AsioEventServiceTest, HandsBackWhatWasCleared) {
  service_.PostDelayed(1000000, &noting_, 1, boost::make_shared<tarvex::MessageData>());
  std::list<Message> removed;
  service_.Clear(&noting_, 1, &removed);
  ASSERT_EQ(removed.size(), 1U);
  EXPECT_EQ(removed.front().handler, &noting_);
  EXPECT_TRUE(removed.front().data);
}

TEST_F(AsioEventServiceTest, HasReleasedWhatWasClearedWhenThatReturns) {
  const auto data = boost::make_shared<tarvex::MessageData>();
  service_.Post(&noting_, 1, data, false);
  service_.Post(&noting_, 1, data, true);
  service_.PostDelayed(1000000, &noting_, 1, data);
  service_.Clear(&noting_, 1, nullptr);
  EXPECT_EQ(data.use_count(), 1);
}

TEST_F(AsioEventServiceTest, HasReleasedAMessageBeforeItDeliversTheNext) {
  auto data = boost::make_shared<tarvex::MessageData>();
  service_.Post(&noting_, 1, data, false);
  Handler next([&](Message*) { EXPECT_EQ(data.use_count(), 1); });
  service_.Post(&next, 2, {}, false);
  RunToTheEnd();
}

TEST_F(AsioEventServiceTest, LetsAHandlerClearItselfFromWithinADelivery) {
  Handler clearing([this, &clearing](Message* msg) {
    arrived_.push_back(msg->message_id);
    service_.Clear(&clearing, 1, nullptr);
  });
  service_.Post(&clearing, 1, {}, false);
  service_.Post(&clearing, 1, {}, false);
  RunToTheEnd();
  EXPECT_THAT(arrived_, ElementsAre(1));
}

TEST_F(AsioEventServiceTest, LetsAHandlerDestroyItselfFromWithinADelivery) {
  std::unique_ptr<Handler> mortal;
  mortal = std::make_unique<Handler>([&](Message*) {
    service_.Clear(mortal.get(), 1, nullptr);
    arrived_.push_back(1);
    auto* const service = &service_;
    auto* const noting = &noting_;
    mortal.reset();
    service->Post(noting, 2, {}, false);
  });
  service_.Post(mortal.get(), 1, {}, false);
  service_.Post(mortal.get(), 1, {}, false);
  service_.PostTask([this] { service_.PostTask([this] { service_.Stop(); }); });
  service_.Run();
  EXPECT_THAT(arrived_, ElementsAre(1, 2));
}

TEST_F(AsioEventServiceTest, GoesOnAfterAnExceptionOfAHandlerAndLogsIt) {
  Handler throwing([](Message*) { throw std::runtime_error("broken handler"); });
  testing::internal::CaptureStderr();
  service_.Post(&throwing, 1, {}, false);
  service_.Post(&noting_, 2, {}, false);
  RunToTheEnd();
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(": broken handler\n"));
  EXPECT_THAT(arrived_, ElementsAre(2));
}

TEST_F(AsioEventServiceTest, GoesOnAfterAnExceptionOfATaskThatIsNoStandardOne) {
  testing::internal::CaptureStderr();
  service_.PostTask([] { throw 1; });
  service_.PostTask([this] { arrived_.push_back(2); });
  RunToTheEnd();
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("unknown exception"));
  EXPECT_THAT(arrived_, ElementsAre(2));
}

TEST_F(AsioEventServiceTest, TreatsNoDelayAndLessAsAtOnce) {
  service_.PostDelayed(0, &noting_, 1, {});
  service_.PostDelayed(-5, &noting_, 2, {});
  RunToTheEnd();
  EXPECT_THAT(arrived_, ElementsAre(1, 2));
}

TEST_F(AsioEventServiceTest, DeliversDelayedMessagesByTimeNotByOrder) {
  Handler last([this](Message* msg) {
    arrived_.push_back(msg->message_id);
    service_.Stop();
  });
  service_.PostDelayed(60, &last, 3, {});
  service_.PostDelayed(20, &noting_, 1, {});
  service_.PostDelayed(40, &noting_, 2, {});
  service_.Run();
  EXPECT_THAT(arrived_, ElementsAre(1, 2, 3));
}

TEST_F(AsioEventServiceTest, DeliversNoDelayedMessageEarly) {
  const auto posted = std::chrono::steady_clock::now();
  auto delivered = posted;
  Handler last([&](Message*) {
    delivered = std::chrono::steady_clock::now();
    service_.Stop();
  });
  service_.PostDelayed(30, &last, 1, {});
  service_.Run();
  EXPECT_GE(delivered - posted, milliseconds(30));
}

TEST_F(AsioEventServiceTest, DeliversDelayedMessagesPostedFromAnotherThreadWhileItWaits) {
  Handler last([this](Message* msg) {
    arrived_.push_back(msg->message_id);
    service_.Stop();
  });
  std::thread runner([this] { service_.Run(); });
  service_.PostDelayed(3600 * 1000, &noting_, 9, {});
  service_.PostDelayed(5, &last, 1, {});
  runner.join();
  EXPECT_THAT(arrived_, ElementsAre(1));
}

TEST_F(AsioEventServiceTest, RunsDelayedTasksInRealTime) {
  const auto posted = std::chrono::steady_clock::now();
  AsioEventService fast(1000);
  fast.PostTaskAfter(milliseconds(30), [&] { fast.Stop(); });
  fast.Run();
  EXPECT_GE(std::chrono::steady_clock::now() - posted, milliseconds(30));
}

TEST_F(AsioEventServiceTest, DoesNotRunOnceStopped) {
  service_.Post(&noting_, 1, {}, false);
  service_.Stop();
  service_.Run();
  EXPECT_THAT(arrived_, ElementsAre());
}

TEST_F(AsioEventServiceTest, RunsItsContextButDeliversNothingWhileItWaits) {
  bool has_come = false;
  service_.Post(&noting_, 1, {}, false);
  service_.PostTaskAfter(std::chrono::milliseconds(0), [this] { arrived_.push_back(2); });
  boost::asio::post(service_.context(), [&] { has_come = true; });
  EXPECT_TRUE(service_.WaitUntil(InALongTime(), [&] { return has_come; }));
  EXPECT_THAT(arrived_, ElementsAre());
}

TEST_F(AsioEventServiceTest, DeliversWhatCameWhileItWaitedAfterIt) {
  service_.PostTask([this] {
    service_.Post(&noting_, 1, {}, false);
    service_.WaitUntil(std::chrono::steady_clock::now() + std::chrono::milliseconds(1),
                       [] { return false; });
    arrived_.push_back(0);
    service_.PostTask([this] { service_.Stop(); });
  });
  service_.Run();
  EXPECT_THAT(arrived_, ElementsAre(0, 1));
}

TEST_F(AsioEventServiceTest, GivesUpAWaitAtItsDeadline) {
  EXPECT_FALSE(service_.WaitUntil(std::chrono::steady_clock::now(), [] { return false; }));
}

// What is under way when it is stopped may need an answer to be finished.
TEST_F(AsioEventServiceTest, WaitsAlsoOnceItIsStopped) {
  bool has_come = false;
  service_.Stop();
  boost::asio::post(service_.context(), [&] { has_come = true; });
  EXPECT_TRUE(service_.WaitUntil(InALongTime(), [&] { return has_come; }));
}

TEST_F(AsioEventServiceTest, LetsDataTurnToItWhenItDies) {
  struct Clearing : tarvex::MessageData {
    AsioEventService* service = nullptr;
    tarvex::MessageHandler* handler = nullptr;
    ~Clearing() override { service->Clear(handler, 1, nullptr); }
  };
  auto service = std::make_unique<AsioEventService>();
  const auto data = boost::make_shared<Clearing>();
  data->service = service.get();
  data->handler = &noting_;
  service->Post(&noting_, 1, data, false);
  service->PostDelayed(1000, &noting_, 1, data);
  EXPECT_EQ(data.use_count(), 3);
  service.reset();
  EXPECT_EQ(data.use_count(), 1);
  data->service = &service_;
}

TEST(ScaledEventService, DividesDelays) {
  AsioEventService service(1e6);
  Handler last([&](Message*) { service.Stop(); });
  const auto posted = std::chrono::steady_clock::now();
  service.PostDelayed(3600 * 1000, &last, 1, {});
  service.Run();
  EXPECT_LT(std::chrono::steady_clock::now() - posted, std::chrono::hours(1));
}

TEST(ScaledEventService, DoesNotDeliverEarlyOnASlowClock) {
  AsioEventService service(1e-300);
  bool delivered = false;
  Handler noting([&](Message*) { delivered = true; });
  service.PostDelayed(1, &noting, 1, {});
  service.PostTaskAfter(milliseconds(30), [&] { service.Stop(); });
  service.Run();
  EXPECT_FALSE(delivered);
}

TEST(ClockScale, IsOneWithoutTheVariable) { EXPECT_EQ(tarvex::ClockScaleFromEnvironment(), 1.0); }

TEST(ClockScale, IsReadFromTheEnvironment) {
  const ScopedEnvironment scale("TARVEX_CLOCK_SCALE", "12.5");
  EXPECT_EQ(tarvex::ClockScaleFromEnvironment(), 12.5);
}

TEST(ClockScale, IsOneWithAnErrorWhereTheVariableMakesNoSense) {
  for (const char* nonsense : {"fast", "2x", "0", "-1", "inf", "nan"}) {
    const ScopedEnvironment scale("TARVEX_CLOCK_SCALE", nonsense);
    testing::internal::CaptureStderr();
    EXPECT_EQ(tarvex::ClockScaleFromEnvironment(), 1.0) << nonsense;
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(" error ")) << nonsense;
  }
}

}  // namespace
