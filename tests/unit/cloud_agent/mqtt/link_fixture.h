// The link with a broker that does as the test says, and an event thread that runs when it says.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "cloud_agent/mqtt/mqtt_link.h"
#include "mqtt/scripted_broker.h"

namespace agent {

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

inline OutboundMessage Message(const std::string& topic, const std::string& payload) {
  OutboundMessage message;
  message.topic = topic;
  message.payload = payload;
  return message;
}

class LinkTest : public ::testing::Test, private LinkListener {
 protected:
  LinkTest() {
    options_.broker.addresses = {{"127.0.0.1", broker_.port()}};
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

  /// What is in the log of what is done.
  static std::string LogOf(const std::function<void()>& deed) {
    testing::internal::CaptureStderr();
    deed();
    return testing::internal::GetCapturedStderr();
  }

  ScriptedBroker broker_;
  ScriptedBroker silent_;  // until a test has it say something
  TaskQueue queue_;
  MqttLink::Options options_;
  std::deque<std::string> heard_;
  std::string reason_;
  std::vector<InboundRequest> requests_;
  std::unique_ptr<MqttLink> link_;  // the first to go
};

}  // namespace agent
