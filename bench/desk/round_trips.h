// Round trips, one at a time: of requests through the whole desk, and of the parts of their way.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include <json/value.h>

struct RoundTripOptions {
  int bus_port = 0;
  int broker_port = 0;
  std::string base;  ///< ROOT/SN
  pid_t pid = 0;     ///< of the agent
  std::size_t count = 1000;
  std::string name;     ///< of a request
  std::string body;     ///< its body, JSON; empty for none
  std::string queue;    ///< of a service
  std::string request;  ///< to that service; ID in it is replaced by a number that counts
  std::uint32_t first_id = 1;
};

/// A request of the cloud. With a queue, in turn with what it is made of at least: a message
/// echoed at the broker, and that queue's bare request.
Json::Value MeasureRequests(const RoundTripOptions& options);

/// A message of a result's size at QoS 1, and a bare bus request, in turn.
Json::Value MeasureDeliveryFloor(const RoundTripOptions& options);

/// A bare bus request.
Json::Value MeasureBusRequests(const RoundTripOptions& options);
