// Counts what the camera announces.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <json/value.h>

#include "virtual_camera/surroundings/announcer.h"

namespace virtual_camera {

/// Passes everything on to another announcer, which must outlive it.
class CountingAnnouncer : public Announcer {
 public:
  explicit CountingAnnouncer(Announcer& next) : next_(next) {}

  bool Announce(const std::string& topic, const std::string& body) override {
    const bool announced = next_.Announce(topic, body);
    Counts& counts = counts_[topic];
    ++(announced ? counts.announced : counts.missed);
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

  Announcer& next_;
  std::map<std::string, Counts> counts_;
};

}  // namespace virtual_camera
