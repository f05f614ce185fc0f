// A camera, a plug-in and a broker around the guard under test, turned by hand.
#pragma once

#include <algorithm>
#include <deque>
#include <set>
#include <utility>
#include <vector>

#include "mqttadapter_host/delivery_guard.h"
#include "plugin_model.h"
#include "support/fake_loop.h"

namespace mqttadapter_host {

inline Json::Value PlatePayload(unsigned plate_id) {
  Json::Value payload;
  payload["AlarmInfoPlate"]["result"]["PlateResult"]["plateid"] = plate_id;
  return payload;
}

inline Json::Value OfflineRequest(const std::string& enable) {
  Json::Value payload;
  payload["type"] = "check_offline_record";
  payload["body"]["enable"] = enable;
  return payload;
}

inline Json::Value PushRequest(unsigned max_count) {
  Json::Value payload = OfflineRequest("push");
  payload["body"]["max_count"] = max_count;
  return payload;
}

struct DeliveryWorld {
  struct Published {
    std::uint64_t id;
    unsigned long long tag;
    unsigned plate_id;
  };

  explicit DeliveryWorld(const DeliveryGuard::Options& options = {})
      : guard(options, loop.Post(),
              [this](unsigned long long tag) { plugin.OnMessagePublished(tag); }),
        plugin(
            &store, loop.Post(),
            [this](std::function<void()> step) { later.push_back(std::move(step)); },
            [this](unsigned long long tag, unsigned plate_id) { PluginPublishes(tag, plate_id); }) {
    guard.OnLinkUp();
  }

  /// The camera recognises a car.
  void CarPasses(unsigned plate_id) {
    store.Add(plate_id);
    guard.OnBusMessage("BUS_SRV_IVS_RESULT", [this, plate_id] { plugin.OnBusResult(plate_id); });
  }

  void PluginPublishes(unsigned long long tag, unsigned plate_id) {
    const Json::Value payload = PlatePayload(plate_id);
    if (!guard.MayPublish(tag, payload)) {
      return;
    }
    if (!link_up) {
      guard.OnNotPublished(tag);
      return;
    }
    const Published published{++last_id, tag, plate_id};
    in_flight.push_back(published);
    history.push_back(plate_id);
    Sent sent;
    sent.tag = tag;
    sent.plate_id = plate_id;
    guard.OnPublished(published.id, sent);
  }

  /// The broker takes the oldest publication, and the answer arrives.
  void Acknowledge(bool taken = true) {
    const Published published = in_flight.front();
    in_flight.pop_front();
    if (taken) {
      delivered.insert(published.plate_id);
    }
    guard.OnAcknowledged(published.id, taken ? Answer::kTaken : Answer::kRefused);
  }

  /// The broker takes the oldest publication, and has nobody to pass it on to.
  void AcknowledgeUnheard() {
    const Published published = in_flight.front();
    in_flight.pop_front();
    guard.OnAcknowledged(published.id, Answer::kUnheard);
  }

  /// The broker takes the oldest publication, but the link ends before its answer.
  void LinkBreaksAfterDelivery() {
    if (!in_flight.empty()) {
      delivered.insert(in_flight.front().plate_id);
      late.push_back(in_flight.front());
    }
    LinkBreaks();
  }

  void LinkBreaks() {
    in_flight.clear();
    link_up = false;
    guard.OnLinkDown();
  }

  void LinkComesUp() {
    link_up = true;
    guard.OnLinkUp();
  }

  /// An answer of before the loss comes up after all.
  void LateAcknowledgement() {
    const Published published = late.front();
    late.pop_front();
    guard.OnAcknowledged(published.id, Answer::kTaken);
  }

  void Push(unsigned max_count) {
    plugin.Push(max_count);
    guard.OnRequestCarriedOut("check_offline_record", PushRequest(max_count));
  }

  void Stop() {
    plugin.Stop();
    guard.OnRequestCarriedOut("check_offline_record", OfflineRequest("stop"));
  }

  void NextOfflineStep() {
    const std::function<void()> step = std::move(later.front());
    later.pop_front();
    step();
  }

  /// What the store believes delivered although the broker never took it.
  std::vector<unsigned> Lost() const {
    std::vector<unsigned> lost;
    std::set_difference(store.marked.begin(), store.marked.end(), delivered.begin(),
                        delivered.end(), std::back_inserter(lost));
    return lost;
  }

  FakeLoop loop;
  StoreModel store;
  DeliveryGuard guard;
  PluginModel plugin;
  std::deque<std::function<void()>> later;
  std::deque<Published> in_flight;
  std::deque<Published> late;
  std::vector<unsigned> history;  // plate ids in the order published
  std::set<unsigned> delivered;
  std::uint64_t last_id = 0;
  bool link_up = true;
};

}  // namespace mqttadapter_host
