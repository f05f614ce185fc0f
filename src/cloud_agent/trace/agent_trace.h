// What the agent tells of each message; docs/trace.md has the events.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "cloud_agent/delivery/host_duties.h"
#include "cloud_agent/mqtt/link.h"
#include "platform/bus_watch.h"
#include "platform/trace.h"
#include "tarvex/dp_client.h"

namespace agent {

/// There is one only where the agent is to tell. Event thread only.
class AgentTrace {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// @param run what the ids of requests begin with: tells this run of the agent from others.
  /// @param now the agent's.
  AgentTrace(tarvex::Trace trace, const std::string& run, std::function<TimePoint()> now);

  void LinkUp() const;
  void LinkDown(const std::string& reason) const;

  /// @return `deliver`, told of when it is called.
  std::function<void()> HandingOver(const tarvex::DpMessage& message,
                                    std::function<void()> deliver) const;

  // Messages of the plug-in; what the agent itself publishes is left out.
  void Published(std::uint64_t publication, const Sent& sent) const;
  void NotPublished(const std::string& name, const Sent& sent, const char* why) const;
  /// @param sent null, as after a loss of the link: nothing is told.
  void Acknowledged(std::uint64_t publication, const Sent* sent, Answer answer) const;
  void Unconfirmed(std::uint64_t publication, const Sent& sent) const;

  // What happens from the beginning of a request's turn to its end is told with its id.
  void RequestBegins(const InboundRequest& inbound, const std::string& name);
  void Responded(const OutboundMessage& message) const;
  void RequestEnds() { request_.reset(); }

  void BusRequest(const tarvex::BusRequest& request) const;

  // What the plug-in is called for, told before.
  void HandingOverRequest(const std::string& name, const Json::Value& payload,
                          const std::string& version) const;
  void Confirming(unsigned long long tag) const;

 private:
  struct Turn {
    std::string id;
    TimePoint begun_at;
  };

  void Tell(const char* event, Json::Value members, TimePoint at) const;
  void AddRequest(Json::Value* event) const;

  const tarvex::Trace trace_;
  const std::string run_;
  const std::function<TimePoint()> now_;
  std::uint64_t requests_ = 0;
  std::optional<Turn> request_;
};

}  // namespace agent
