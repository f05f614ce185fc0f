// The way of one message through the desk, as its programs, the bus and the broker told it.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

namespace console {

/// Microseconds since 1970 by the host's clock.
using Time_us = std::int64_t;
constexpr Time_us kSecond_us = 1000000;

struct Passport {
  struct Step {
    std::string what;  ///< as docs/console.md lists them
    std::string by;    ///< "camera", "bus", "agent", "broker" or "console"
    Time_us at_us = 0;
    std::string note;  ///< may be empty
  };

  /// A message on the bus.
  struct OnBus {
    std::string topic;
    std::string body;  ///< bytes
    Time_us at_us = 0;
  };

  /// A message at the broker, or one that was meant for it.
  struct AtBroker {
    std::string topic;
    std::string payload;
    Time_us at_us = 0;
    std::int64_t us = 0;  ///< of a response: since the request's turn began
  };

  struct Request {
    std::string topic;
    std::string payload;
    Time_us at_us = 0;
    std::int64_t waited_us = 0;
    std::string correlation;  ///< empty without one
  };

  struct BusRequest {
    std::string queue;
    std::string body;  ///< bytes
    int timeout_ms = 0;
    std::string outcome;
    std::int64_t us = 0;
    Time_us at_us = 0;  ///< its begin
    std::optional<std::string> reply;
  };

  std::string id;  ///< such as "result/DESK0001/17"
  std::string sn;
  std::string kind;
  std::string name;
  std::string state;
  Time_us at_us = 0;  ///< its begin
  bool is_redelivered = false;
  int copies = 0;  ///< that the broker passed on
  std::optional<std::int64_t> ack_us;
  std::optional<OnBus> bus;
  std::vector<AtBroker> mqtt;
  std::vector<Step> steps;
  std::optional<Request> request;
  std::vector<BusRequest> bus_requests;
  std::optional<AtBroker> response;
  std::optional<std::uint32_t> plate_id;
  std::string plate;    ///< text of the plate; empty where there is none
  bool is_cut = false;  ///< something was too long to be kept whole

  bool Has(const char* step) const;

  /// Keeps at most 40 steps; later ones are left out.
  void Add(const char* step, const char* by, Time_us time_us, const std::string& note = "");

  /// Notes how far a message has come. What is told late does not take it back.
  void Advance(const char* to);

  /// It stays in the camera's store, or goes back there.
  void FallBack(const char* to);

  Json::Value ToJson() const;
};

}  // namespace console
