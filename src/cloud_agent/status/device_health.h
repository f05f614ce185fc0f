// Whether the camera behind the bus is there, as far as requests on the bus tell.
#pragma once

#include <chrono>
#include <map>
#include <string>

#include <json/value.h>

#include "platform/bus_watch.h"

namespace agent {

/// Event thread only.
class DeviceHealth {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  void OnBusRequest(const tarvex::BusRequest& request, TimePoint now);

  /// Whether the bus and each of these databases are there, and the store has answered
  /// the latest request that it got.
  bool IsDeviceThere(const std::map<std::string, bool>& databases) const;

  /// {"bus", "databases": {NAME: there}, "services": {QUEUE: {"answers", "age_s"}}}, each
  /// service as its latest request found it.
  Json::Value ToJson(const std::map<std::string, bool>& databases, TimePoint now) const;

 private:
  struct Service {
    bool answers = false;
    TimePoint seen_at;
  };

  bool is_bus_there_ = false;
  std::map<std::string, Service> services_;  // by queue
};

}  // namespace agent
