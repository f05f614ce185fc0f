// Lets a host see what the bus requests of its process come to.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

namespace tarvex {

enum class BusOutcome {
  kAnswered,
  kNobody,        ///< nobody serves the queue
  kTimedOut,      ///< no answer in time
  kNotConnected,  ///< the bus is not there, does not take it, or was lost meanwhile
};

/// As in "answered".
const char* BusOutcomeText(BusOutcome outcome);

/// A request on the bus that is over.
struct BusRequest {
  std::string queue;
  std::string_view body;  ///< bytes, the requester's own: only while the watch is called
  int timeout_ms = 0;     ///< how long the requester would have waited
  BusOutcome outcome = BusOutcome::kNotConnected;
  std::chrono::microseconds time{0};  ///< that it took
  std::string reply;                  ///< bytes, where it was answered
};

using BusWatch = std::function<void(const BusRequest& request)>;

/// Installs the watch of this process: it is called on the requester's thread after every
/// request of a DpClient. An empty one ends that. To be called on that thread, or before
/// requests are made.
void SetBusWatch(BusWatch watch);

/// For clients: tells the watch, where there is one.
void NoteBusRequest(const BusRequest& request);

}  // namespace tarvex
