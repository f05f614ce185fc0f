// An event service that delivers when the test says so, on the test's thread.
#pragma once

#include <list>
#include <mutex>
#include <utility>

#include "tarvex/event_service.h"

class ManualEventService : public tarvex::EventService {
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

  /// Delivers what waits.
  void Deliver() {
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

  std::size_t waiting() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return waiting_.size();
  }

 private:
  std::mutex mutex_;
  std::list<tarvex::Message> waiting_;
};
