// Counts what the camera announces, and tells of it.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <json/value.h>

#include "platform/trace.h"
#include "virtual_camera/surroundings/announcer.h"
#include "virtual_camera/world/ivs_record.h"

namespace virtual_camera {

/// Passes everything on to another announcer, which must outlive it.
class CountingAnnouncer : public Announcer {
 public:
  /// @param trace not owned; null: nothing is told.
  CountingAnnouncer(Announcer& next, const tarvex::Trace* trace) : next_(next), trace_(trace) {}

  bool Announce(const std::string& topic, const std::string& body) override {
    // Whoever hears the message does so later than that.
    const int64_t at_us = trace_ != nullptr ? tarvex::TraceClock_us() : 0;
    const bool announced = next_.Announce(topic, body);
    Counts& counts = counts_[topic];
    ++(announced ? counts.announced : counts.missed);
    if (announced && trace_ != nullptr) {
      Tell(topic, body, at_us);
    }
    return announced;
  }

  /// By topic: {"announced": n, "missed": n}, missed while the bus was away.
  Json::Value State() const {
    Json::Value state(Json::objectValue);
    for (const auto& [topic, counts] : counts_) {
      state[topic]["announced"] = static_cast<Json::Int64>(counts.announced);
      state[topic]["missed"] = static_cast<Json::Int64>(counts.missed);
    }
    return state;
  }

 private:
  struct Counts {
    int64_t announced = 0;
    int64_t missed = 0;
  };

  void Tell(const std::string& topic, const std::string& body, int64_t at_us) const {
    Json::Value event;
    event["topic"] = topic;
    if (topic == kResultTopic) {
      event["plate_id"] = RecordFromBytes(body).plate_id;
    }
    trace_->Tell("announced", event, at_us);
  }

  Announcer& next_;
  const tarvex::Trace* const trace_;
  std::map<std::string, Counts> counts_;
};

}  // namespace virtual_camera
