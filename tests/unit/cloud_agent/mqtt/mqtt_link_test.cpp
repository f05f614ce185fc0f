#include "cloud_agent/mqtt/mqtt_link.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "mqtt/scripted_broker.h"
#include "support/mqtt_bytes.h"
#include "support/wait_until.h"

namespace agent {
namespace {

using ::testing::HasSubstr;

/// The event thread: reads sockets and runs what was posted when the test says so.
class TaskQueue {
 public:
  boost::asio::io_context& context() { return context_; }

  void Post(std::function<void()> task) {
    const std::lock_guard<std::mutex> lock(mutex_);
    tasks_.push_back(std::move(task));
    boost::asio::post(context_, [] {});
  }

  /// @return false when fewer tasks than that wait after ten seconds.
  bool HoldsSoon(std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Waiting() < count && std::chrono::steady_clock::now() < deadline) {
      context_.run_one_until(deadline);
    }
    return Waiting() >= count;
  }

  /// Runs one task, waiting for it if need be.
  /// @return false when none came in ten seconds.
  bool RunOne() {
    if (!HoldsSoon(1)) {
      return false;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    const std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    lock.unlock();
    task();
    return true;
  }

  std::size_t Waiting() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return tasks_.size();
  }

 private:
  boost::asio::io_context context_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{
      context_.get_executor()};
  std::mutex mutex_;
  std::deque<std::function<void()>> tasks_;
};

OutboundMessage Message(const std::string& topic, const std::string& payload) {
  OutboundMessage message;
  message.topic = topic;
  message.payload = payload;
  return message;
}

class LinkTest : public ::testing::Test, private LinkListener {
 protected:
  LinkTest() {
    options_.broker.host = "127.0.0.1";
    options_.broker.port = broker_.port();
    options_.broker.client_id = "CAM1";
    options_.broker.will_topic = "cameras/CAM1/status";
    options_.broker.will_payload = "gone";
    options_.broker.request_filter = "cameras/CAM1/request/#";
    options_.broker.max_request_bytes = 50;
    options_.backoff_min_ms = 1;
    options_.backoff_max_ms = 20;
  }

  void StartLink() {
    link_ = std::make_unique<MqttLink>(
        options_, queue_.context(),
        [this](std::function<void()> task) { queue_.Post(std::move(task)); },
        [this](InboundRequest request) {
          const std::string payload = request.payload;
          queue_.Post([this, request = std::move(request)] {
            requests_.push_back(request);
            heard_.push_back("request " + request.topic + " " + request.payload);
          });
          return payload == "too much" ? std::vector<OutboundMessage>{Message("refused", payload)}
                                       : std::vector<OutboundMessage>();
        });
    link_->Start(this);
  }

  /// Starts the link and lets it in; the event thread knows of it.
  BrokerSession Connected() {
    StartLink();
    BrokerSession session = broker_.Accept();
    session.LetIn();
    EXPECT_EQ(Heard(), "up");
    return session;
  }

  /// What the listener hears next.
  std::string Heard() {
    while (heard_.empty() && queue_.RunOne()) {
    }
    if (heard_.empty()) {
      return "nothing";
    }
    const std::string first = heard_.front();
    heard_.pop_front();
    return first;
  }

  void OnLinkUp(int subscription_code) override {
    heard_.push_back(subscription_code < kFirstFailureCode ? "up" : "up without requests");
  }
  void OnLinkDown(const std::string& reason) override {
    heard_.push_back("down");
    reason_ = reason;
  }
  void OnAcknowledged(std::uint64_t publication, int reason_code) override {
    heard_.push_back("acknowledged " + std::to_string(publication) + " " +
                     std::to_string(reason_code));
  }

  ScriptedBroker broker_;
  TaskQueue queue_;
  MqttLink::Options options_;
  std::deque<std::string> heard_;
  std::string reason_;
  std::vector<InboundRequest> requests_;
  std::unique_ptr<MqttLink> link_;  // the first to go
};

TEST_F(LinkTest, ConnectsCleanlyWithAWillAndSubscribesToNewRequestsOnly) {
  options_.broker.username = "cam";
  options_.broker.password = "secret";
  StartLink();
  BrokerSession session = broker_.Accept();
  const ReadConnect connect = session.ExpectConnect();
  EXPECT_TRUE(connect.clean_start);
  EXPECT_TRUE(connect.will_retain);
  EXPECT_EQ(connect.keep_alive_s, 10);
  EXPECT_EQ(connect.client_id, "CAM1");
  EXPECT_EQ(connect.will_topic, "cameras/CAM1/status");
  EXPECT_EQ(connect.will_payload, "gone");
  EXPECT_EQ(connect.username, "cam");
  EXPECT_EQ(connect.password, "secret");
  session.SendConnack(0);
  // QoS 1, no local messages, retain as published, no retained messages.
  EXPECT_EQ(session.ExpectSubscribe(), "cameras/CAM1/request/# 45");
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, ReportsTheAcknowledgementOfEachPublication) {
  BrokerSession session = Connected();
  const Publication first = link_->Publish(Message("t", "one"));
  const Publication second = link_->Publish(Message("t", "two"));
  ASSERT_EQ(first.result, PublishResult::kAccepted);
  const int first_id = session.ExpectPublish().message_id;
  const ReadPublish publish = session.ExpectPublish();
  EXPECT_EQ(publish.topic, "t");
  EXPECT_EQ(publish.payload, "two");
  session.SendPuback(publish.message_id, 0x87);
  session.SendPuback(first_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(second.id) + " 135");
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(first.id) + " 0");
}

TEST_F(LinkTest, PublishesNothingBeforeItStands) {
  StartLink();
  EXPECT_EQ(link_->Publish(Message("t", "one")).result, PublishResult::kLinkDown);
}

TEST_F(LinkTest, PublishesNothingBeforeTheEventThreadKnowsOfTheConnection) {
  StartLink();
  BrokerSession session = broker_.Accept();
  session.LetIn();
  ASSERT_TRUE(queue_.HoldsSoon(1));
  EXPECT_EQ(link_->Publish(Message("t", "one")).result, PublishResult::kLinkDown);
  EXPECT_EQ(Heard(), "up");
  EXPECT_EQ(link_->Publish(Message("t", "one")).result, PublishResult::kAccepted);
}

TEST_F(LinkTest, TellsWhenTheSubscriptionIsRefused) {
  StartLink();
  BrokerSession session = broker_.Accept();
  session.ExpectConnect();
  session.SendConnack(0);
  session.ExpectSubscribe(0x87);
  EXPECT_EQ(Heard(), "up without requests");
}

TEST_F(LinkTest, LeavesABrokerThatNeverAnswersTheSubscription) {
  options_.broker.subscribe_timeout_s = 1;
  StartLink();
  {
    BrokerSession session = broker_.Accept();
    session.ExpectConnect();
    session.SendConnack(0);
    EXPECT_EQ(session.Read().type, 8);
    EXPECT_THROW(session.Read(), std::runtime_error);  // the connection is closed
  }
  BrokerSession session = broker_.Accept();
  session.LetIn();
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, ComesBackByItselfAndNeverSendsAgainWhatWasUnderWay) {
  const Publication lost = [this] {
    BrokerSession session = Connected();
    const Publication publication = link_->Publish(Message("t", "lost"));
    session.ExpectPublish();
    return publication;
  }();
  EXPECT_EQ(Heard(), "down");
  BrokerSession session = broker_.Accept();
  session.LetIn();
  EXPECT_EQ(Heard(), "up");
  const Publication next = link_->Publish(Message("t", "next"));
  EXPECT_NE(next.id, lost.id);
  const ReadPublish publish = session.ExpectPublish();
  EXPECT_EQ(publish.payload, "next");
  session.SendPuback(publish.message_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(next.id) + " 0");
}

TEST_F(LinkTest, RefusesWhatCannotBePublished) {
  BrokerSession session = Connected();
  EXPECT_EQ(link_->Publish(Message("t/#", "1")).result, PublishResult::kRefused);
}

TEST_F(LinkTest, HandsOverARequestWithWhatItsAnswerNeeds) {
  BrokerSession session = Connected();
  const std::string properties =
      "\x08" + MqttString("my/answers") + "\x09" + MqttString(std::string("\0c", 2));
  session.SendPublish("cameras/CAM1/request/get_sn", "{}", properties, true);
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn {}");
  EXPECT_EQ(requests_[0].size, 2U);
  EXPECT_TRUE(requests_[0].retained);
  EXPECT_EQ(requests_[0].response_topic, "my/answers");
  EXPECT_TRUE(requests_[0].has_correlation_data);
  EXPECT_EQ(requests_[0].correlation_data, std::string("\0c", 2));
}

TEST_F(LinkTest, HandsOverAnEmptyRequest) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "");
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn ");
  EXPECT_FALSE(requests_[0].has_correlation_data);
  EXPECT_FALSE(requests_[0].retained);
}

TEST_F(LinkTest, KeepsOfARequestThatIsTooLargeItsSizeAndBeginning) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", std::string(2000, 'x'));
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn " + std::string(1024, 'x'));
  EXPECT_EQ(requests_[0].size, 2000U);
}

TEST_F(LinkTest, HandsOverWhenAMessageExpires) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "a");
  session.SendPublish("cameras/CAM1/request/get_sn", "b", std::string("\x02\0\0\x01\x02", 5));
  Heard();
  Heard();
  EXPECT_FALSE(requests_[0].expires_in);
  EXPECT_EQ(requests_[1].expires_in, std::chrono::seconds(258));
  EXPECT_GE(requests_[1].received_at, requests_[0].received_at);
}

TEST_F(LinkTest, SendsWhatIsToBeSentAtOnce) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "too much");
  const ReadPublish refusal = session.ExpectPublish();
  EXPECT_EQ(refusal.topic + " " + refusal.payload, "refused too much");
}

TEST_F(LinkTest, SendsCorrelationDataWhereAMessageHasSome) {
  BrokerSession session = Connected();
  OutboundMessage message = Message("my/answers", "{}");
  message.has_correlation_data = true;
  message.correlation_data = std::string("\0c", 2);
  link_->Publish(message);
  EXPECT_EQ(session.ExpectPublish().properties, "\x09" + MqttString(message.correlation_data));
}

TEST_F(LinkTest, KeepsTryingWhenTheBrokerRefuses) {
  StartLink();
  for (int attempt = 0; attempt < 3; ++attempt) {
    BrokerSession session = broker_.Accept();
    session.ExpectConnect();
    session.SendConnack(0x86);
  }
  BrokerSession session = broker_.Accept();
  session.LetIn();
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, DropsAConnectionForTheReasonGiven) {
  BrokerSession session = Connected();
  link_->Drop("enough");
  EXPECT_EQ(Heard(), "down");
  EXPECT_EQ(reason_, "enough");
}

TEST_F(LinkTest, SaysThatAnotherClientUsesItsClientId) {
  BrokerSession session = Connected();
  session.SendDisconnect(0x8E);
  EXPECT_EQ(Heard(), "down");
  EXPECT_THAT(reason_, HasSubstr("another client has connected as CAM1"));
  EXPECT_THAT(reason_, HasSubstr("--client-id"));
}

TEST_F(LinkTest, SuspectsAnotherClientBehindConnectionsThatDoNotLast) {
  testing::internal::CaptureStderr();
  StartLink();
  for (int attempt = 0; attempt < 3; ++attempt) {
    broker_.Accept().LetIn();
    EXPECT_EQ(Heard(), "up");
    EXPECT_EQ(Heard(), "down");
  }
  BrokerSession session = broker_.Accept();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("3 connections in a row did not last: another client may use the "
                             "client id CAM1"));
  EXPECT_THAT(log, testing::Not(HasSubstr("2 connections in a row")));
}

TEST_F(LinkTest, ToldOfARefusalOfItsOwnReportsNoAcknowledgement) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "too much");
  session.SendPuback(session.ExpectPublish().message_id, 0);
  Heard();
  const Publication publication = link_->Publish(Message("t", "two"));
  session.SendPuback(session.ExpectPublish().message_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(publication.id) + " 0");
}

TEST_F(LinkTest, TakesRequestsWhileTheEventThreadIsBusy) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "text");
  EXPECT_TRUE(WaitUntil([this] { return queue_.Waiting() == 1; }));
}

TEST_F(LinkTest, SaysGoodbyeWithItsLastMessage) {
  BrokerSession session = Connected();
  std::thread stopping([this] {
    OutboundMessage last = Message("cameras/CAM1/status", "bye");
    last.retain = true;
    link_->Stop(last);
  });
  const ReadPublish publish = session.ExpectPublish();
  EXPECT_EQ(publish.payload, "bye");
  EXPECT_TRUE(publish.retain);
  session.SendPuback(publish.message_id, 0);
  const MqttPacket disconnect = session.Read();
  EXPECT_EQ(disconnect.type, 14);
  EXPECT_TRUE(disconnect.body.empty() || disconnect.body[0] == 0) << "the will would be sent";
  stopping.join();
}

TEST_F(LinkTest, ReportsNothingAfterItWasStopped) {
  BrokerSession session = Connected();
  link_->Publish(Message("t", "one"));
  session.SendPuback(session.ExpectPublish().message_id, 0);
  ASSERT_TRUE(queue_.HoldsSoon(1));
  link_->Stop(Message("t", "bye"));
  EXPECT_EQ(link_->Publish(Message("t", "two")).result, PublishResult::kLinkDown);
  queue_.Post([this] { heard_.push_back("end"); });
  EXPECT_EQ(Heard(), "end");
}

TEST_F(LinkTest, EndsWhileItWaitsForABrokerThatNeverAnswers) {
  StartLink();
  BrokerSession session = broker_.Accept();
  session.ExpectConnect();
  link_->Stop(Message("t", "bye"));
}

}  // namespace
}  // namespace agent
