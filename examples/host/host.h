// A host of one plug-in, as far as the plug-in is concerned: the duties are in libmqttadapter-host,
// and this says what is called when.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <utility>

#include <boost/make_shared.hpp>

#include "base_adapter.h"
#include "json_text.h"
#include "mqttadapter_host/delivery_guard.h"
#include "mqttadapter_host/gated_bus.h"
#include "mqttadapter_host/plugin_protocol.h"

using Task = std::function<void()>;

/// Runs tasks on the event service's thread, behind whatever was posted before.
class Tasks : public tarvex::MessageHandler {
 public:
  explicit Tasks(boost::shared_ptr<tarvex::EventService> events) : events_(events) {}
  ~Tasks() override { events_->Clear(this, 0, nullptr); }

  void Post(Task task) {
    const auto data = boost::make_shared<Data>();
    data->task = std::move(task);
    events_->Post(this, 0, data, false);
  }
  void PostDelayed(int delay_ms, Task task) {
    const auto data = boost::make_shared<Data>();
    data->task = std::move(task);
    events_->PostDelayed(delay_ms, this, 0, data);
  }
  void OnMessage(tarvex::Message* message) override {
    static_cast<const Data&>(*message->data).task();
  }

 private:
  struct Data : tarvex::MessageData {
    Task task;
  };
  boost::shared_ptr<tarvex::EventService> events_;
};

/// Sends the messages; answers come to Host::OnPuback.
class Broker {
 public:
  /// @return a number that no other publication has, on no other connection either; 0: not sent.
  virtual std::uint64_t Publish(const std::string& name, const std::string& text) = 0;

 protected:
  ~Broker() {}
};

/// Everything happens on the event service's thread.
class Host : public sigslot::has_slots<sigslot::single_threaded> {
 public:
  Host(Tasks* tasks, BaseAdapter* adapter, Broker* broker)
      : adapter_(adapter),
        broker_(broker),
        guard_(
            {}, [tasks](Task task) { tasks->Post(std::move(task)); },
            [this](unsigned long long tag) { adapter_->OnMessagePublished(tag); }) {
    mqttadapter_host::SetBusGate([this](const tarvex::DpMessage& message, Task deliver) {
      guard_.OnBusMessage(message.method, std::move(deliver));
    });
    adapter_->SignalPushMessage.connect(this, &Host::OnPush);
    // Pictures stay where they are; a cloud that is to fetch them needs copies, and addresses of
    // those.
    adapter_->Initialize([](const std::string& source, const std::string&) { return source; });
    adapter_->GetMessageNames(requests_, publishes_);
  }
  ~Host() override { mqttadapter_host::SetBusGate({}); }  // then destory_adapter

  void OnLinkUp() {
    adapter_->OnMQTTConnected();
    guard_.OnLinkUp();
    for (const std::string& name : publishes_) {
      adapter_->SubscribeMessage(name);
    }
  }

  void OnLinkDown() {
    for (const std::string& name : publishes_) {
      adapter_->UnsubscribeMessage(name);
    }
    adapter_->OnMQTTDisconnected();
    guard_.OnLinkDown();
  }

  void OnPuback(std::uint64_t publication, int reason) {
    guard_.OnAcknowledged(publication, reason < 0x80 ? mqttadapter_host::Answer::kTaken
                                                     : mqttadapter_host::Answer::kRefused);
  }

  bool OnRequest(const std::string& name, const Json::Value& payload, const std::string& version,
                 Json::Value& response) {
    const bool is_done = adapter_->RequestMessage(name, payload, version, response);
    if (is_done) {
      guard_.OnRequestCarriedOut(name, payload);
    }
    return is_done;
  }

 private:
  void OnPush(const std::string& name, const Json::Value& payload, const std::string&,
              unsigned long long tag) {
    if (!guard_.MayPublish(tag, payload)) {
      return;  // it stays in the camera's store
    }
    std::string text;
    Json::Json2String(payload, text);
    const std::uint64_t publication = broker_->Publish(name, text);
    if (publication == 0) {
      guard_.OnNotPublished(tag);
      return;
    }
    mqttadapter_host::Sent sent;
    sent.tag = tag;
    sent.bytes = text.size();
    sent.plate_id = mqttadapter_host::PlateId(payload);
    guard_.OnPublished(publication, std::move(sent));
  }

  BaseAdapter* adapter_;
  Broker* broker_;
  mqttadapter_host::DeliveryGuard guard_;
  std::set<std::string> requests_;
  std::set<std::string> publishes_;
};
