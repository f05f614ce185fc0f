// A bus with a client on it, and the device on its other side.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include "manual_event_service.h"
#include "platform/nats_handle.h"
#include "platform/nats_link.h"
#include "support/nats_server.h"
#include "support/wait_until.h"
#include "tarvex/dp_client.h"

/// Notes what a client emits, as "topic body".
class Listener : public sigslot::has_slots<sigslot::single_threaded> {
 public:
  void OnDpMessage(boost::shared_ptr<tarvex::DpClient> client,
                   boost::shared_ptr<tarvex::DpMessage> message) {
    last_client = client.get();
    heard.push_back(message->method + " " + message->body);
    if (then) {
      then();
    }
  }

  std::vector<std::string> heard;
  std::function<void()> then;
  tarvex::DpClient* last_client = nullptr;
};

/// The device: publishes, and answers requests on a thread of the NATS library.
class Device {
 public:
  using Service = std::function<std::string(const std::string& request)>;

  explicit Device(int port)
      : link_(tarvex::NatsLink::Connect(tarvex::SocketAddress("127.0.0.1", port), "device")) {}
  ~Device() {
    link_.reset();
    // The library may still be calling a service until its subscription is complete.
    WaitUntil([this] { return running_ == 0; });
  }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  bool IsConnected() const { return link_->IsConnected(); }

  /// Returns when the server has it.
  void Publish(const std::string& topic, const std::string& body) {
    natsConnection_Publish(link_->get(), tarvex::BusSubject(topic).c_str(), body.data(),
                           static_cast<int>(body.size()));
    natsConnection_FlushTimeout(link_->get(), 10000);
  }

  /// Which connection the last request came through; each has a name of its own.
  std::string last_requester() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return last_requester_;
  }

  void Serve(const std::string& queue, Service service) {
    services_.push_back(std::make_unique<Serving>(Serving{std::move(service), this}));
    ++running_;
    natsSubscription* created = nullptr;
    natsConnection_QueueSubscribe(&created, link_->get(), tarvex::BusSubject(queue).c_str(), "q",
                                  OnRequest, services_.back().get());
    natsSubscription_SetOnCompleteCB(created, OnComplete, services_.back().get());
    subscriptions_.emplace_back(created);
    natsConnection_FlushTimeout(link_->get(), 10000);
  }

 private:
  struct Serving {
    Service service;
    Device* device;
  };

  /// @param reply_subject the connection's, a dot, and the request's.
  void NoteRequester(const std::string& reply_subject) {
    const std::lock_guard<std::mutex> lock(mutex_);
    last_requester_ = reply_subject.substr(0, reply_subject.rfind('.'));
  }

  static void OnRequest(natsConnection* connection, natsSubscription*, natsMsg* received,
                        void* closure) {
    const tarvex::NatsMessage message(received);
    const std::string request(natsMsg_GetData(received),
                              static_cast<std::size_t>(natsMsg_GetDataLength(received)));
    const auto* serving = static_cast<Serving*>(closure);
    serving->device->NoteRequester(natsMsg_GetReply(received));
    const std::string answer = serving->service(request);
    if (answer != kSilence) {
      natsConnection_Publish(connection, natsMsg_GetReply(received), answer.data(),
                             static_cast<int>(answer.size()));
    }
  }
  static void OnComplete(void* closure) { --static_cast<Serving*>(closure)->device->running_; }

 public:
  /// What a service returns to give no answer.
  static constexpr const char* kSilence = "(silence)";

 private:
  std::vector<std::unique_ptr<Serving>> services_;
  std::atomic<int> running_{0};
  std::mutex mutex_;
  std::string last_requester_;
  std::shared_ptr<tarvex::NatsLink> link_;
  std::vector<tarvex::NatsSubscription> subscriptions_;
};

/// Which threads read and write the client's connection.
enum class Threads { kOfTheLibrary, kOfTheEventService };

class BusTest : public testing::TestWithParam<Threads> {
 protected:
  BusTest() : device_(server_.port()) {
    if (GetParam() == Threads::kOfTheLibrary) {
      UseService(boost::make_shared<ManualEventService>());
    } else {
      const auto service = boost::make_shared<ManualSocketService>();
      sockets_ = service.get();
      UseService(service);
    }
    client_ = NewClient();
  }

  boost::shared_ptr<tarvex::DpClient> NewClient() {
    auto client = tarvex::DpClient::CreateDpClient(
        service_, tarvex::SocketAddress("127.0.0.1", server_.port()), "adapter");
    client->SignalDpMessage.connect(&listener_, &Listener::OnDpMessage);
    return client;
  }

  /// Sends a request; the answer is in `reply_`.
  int Request(const std::string& queue, const std::string& text, int timeout_ms = kLong_ms) {
    return client_->SendRequest(queue, 0, text.data(), text.size(), &reply_, timeout_ms);
  }

  /// Delivers what comes until so many messages were heard in all.
  bool HearsInAll(std::size_t count) {
    return WaitUntil([&] {
      events_->Deliver();
      return listener_.heard.size() >= count;
    });
  }

  /// Waits until so many messages wait for delivery.
  bool HaveArrived(std::size_t count) {
    return WaitUntil([&] { return events_->waiting() >= count; });
  }

  static constexpr int kLong_ms = 600 * 1000;  // longer than any test

  NatsServer server_;
  boost::shared_ptr<tarvex::EventService> service_;
  ManualDelivery* events_ = nullptr;          // the same
  tarvex::SocketService* sockets_ = nullptr;  // the same, where it reads and writes sockets
  Listener listener_;
  Device device_;
  boost::shared_ptr<tarvex::DpClient> client_;
  std::string reply_ = "untouched";

 private:
  template <class Service>
  void UseService(const boost::shared_ptr<Service>& service) {
    service_ = service;
    events_ = service.get();
  }
};

#define INSTANTIATE_FOR_THREADS(Suite)                                               \
  INSTANTIATE_TEST_SUITE_P(                                                          \
      , Suite, testing::Values(Threads::kOfTheLibrary, Threads::kOfTheEventService), \
      [](const auto& threads) {                                                      \
        return threads.param == Threads::kOfTheLibrary ? "Library" : "EventService"; \
      })
