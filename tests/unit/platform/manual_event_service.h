// Event services that deliver when the test says so, on the test's thread.
#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include "platform/socket_service.h"
#include "tarvex/event_service.h"

/// What a test does with either.
class ManualDelivery {
 public:
  virtual ~ManualDelivery() = default;

  /// Delivers what waits.
  virtual void Deliver() = 0;
  virtual std::size_t waiting() = 0;
};

template <class Service>
class ManualService : public Service, public ManualDelivery {
 public:
  void Post(tarvex::MessageHandler* handler, unsigned int id,
            boost::shared_ptr<tarvex::MessageData> data, bool) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    waiting_.push_back({handler, id, std::move(data)});
  }
  void PostDelayed(int, tarvex::MessageHandler* handler, unsigned int id,
                   boost::shared_ptr<tarvex::MessageData> data) override {
    Post(handler, id, std::move(data), false);
  }
  void Clear(tarvex::MessageHandler* handler, unsigned int id,
             std::list<tarvex::Message>*) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    waiting_.remove_if([&](const tarvex::Message& message) {
      return message.handler == handler && message.message_id == id;
    });
  }

  void Deliver() override {
    for (;;) {
      std::list<tarvex::Message> next;
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (waiting_.empty()) {
          return;
        }
        next.splice(next.end(), waiting_, waiting_.begin());
      }
      next.front().handler->OnMessage(&next.front());
    }
  }

  std::size_t waiting() override {
    const std::lock_guard<std::mutex> lock(mutex_);
    return waiting_.size();
  }

 private:
  std::mutex mutex_;
  std::list<tarvex::Message> waiting_;
};

using ManualEventService = ManualService<tarvex::EventService>;

/// Reads and writes sockets as well, when it is asked what waits.
class ManualSocketService : public ManualService<tarvex::SocketService> {
 public:
  boost::asio::io_context& context() override { return context_; }

  bool WaitUntil(TimePoint deadline, const std::function<bool()>& is_over) override {
    while (!is_over() && std::chrono::steady_clock::now() < deadline) {
      context_.run_one_until(deadline);
    }
    return is_over();
  }

  void Deliver() override {
    context_.poll();
    ManualService::Deliver();
  }

  std::size_t waiting() override {
    context_.poll();
    return ManualService::waiting();
  }

 private:
  boost::asio::io_context context_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{
      context_.get_executor()};
};
