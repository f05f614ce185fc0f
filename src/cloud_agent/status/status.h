// The retained status message: that the camera is there, and how it fares.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include <json/value.h>

#include "cloud_agent/delivery/host_duties.h"
#include "cloud_agent/delivery/undelivered.h"
#include "platform/latest_error.h"

namespace agent {

/// Since the agent was started.
struct StatusCounters {
  std::uint64_t connections = 0;
  std::uint64_t published = 0;     ///< messages of the plug-in that were sent
  std::uint64_t acknowledged = 0;  ///< of those, taken by the broker
  std::uint64_t refused_by_broker = 0;
  std::uint64_t dropped_link_down = 0;
  std::uint64_t dropped_backlog_full = 0;
  std::uint64_t dropped_not_publishable = 0;
  std::uint64_t pictures_failed = 0;        ///< published without, for lack of a copy
  std::uint64_t subscriptions_refused = 0;  ///< connections on which no request can arrive
  DeliveryGuard::Counters delivery;
  std::uint64_t results_waiting = 0;  ///< now
  std::uint64_t requests = 0;
  std::uint64_t request_errors = 0;
};

struct Versions {
  std::string agent;
  std::string plugin;  ///< the library's build id
  std::string camera;  ///< of the application software
};

/// The version of this agent.
std::string AgentVersion();

struct Status {
  std::set<std::string> requests;
  std::set<std::string> publishes;
  StatusCounters counters;
  std::optional<Undelivered> undelivered;
  bool is_device_there = false;
  Json::Value health;  ///< as DeviceHealth tells it
  Versions versions;
  std::int64_t started_at = 0;  ///< seconds since 1970
  std::optional<tarvex::LoggedError> last_error;
};

/// @return the status text, one line of JSON.
std::string OnlineStatus(const Status& status);

/// The same of a camera that is not there, which is also the will.
std::string OfflineStatus();

}  // namespace agent
