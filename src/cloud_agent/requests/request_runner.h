// Carrying out the cloud's requests, one after the other.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <json/value.h>

#include "cloud_agent/requests/request.h"
#include "cloud_agent/requests/request_line.h"
#include "cloud_agent/requests/response_memory.h"
#include "cloud_agent/trace/agent_trace.h"
#include "platform/bus_watch.h"

namespace agent {

/// Event thread only.
class RequestRunner {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  struct Options {
    Topics topics;
    std::size_t max_request_bytes = std::size_t{256} << 10;
    bool diagnose = false;  ///< responses tell what happened on the bus
  };

  struct Host {
    std::function<TimePoint()> now;
    /// Whether an answer can be published now.
    std::function<bool()> has_room;
    /// Has the plug-in carry out a request. @return whether it did; may throw.
    std::function<bool(const Request& request, Json::Value& response)> carry_out;
    /// @return false when the message is larger than the broker takes.
    std::function<bool(const OutboundMessage& message)> send;
    AgentTrace* trace = nullptr;  ///< null: nothing is told
  };

  /// @param line not owned; outlives the runner.
  RequestRunner(Options options, RequestLine* line, Host host);

  /// The requests that there are.
  void SetNames(std::set<std::string> names) { names_ = std::move(names); }

  /// Carries out the next request, or leaves it until OnRoom() where there is no room.
  void RunNext();

  /// There may be room again.
  void OnRoom();

  /// Notes a message that the plug-in publishes: it may be the answer to the request that
  /// is being carried out.
  /// @return that request's id where it is, else null.
  Json::Value OnMessage(const std::string& name, const Json::Value& payload);

  /// What a bus request of this process came to.
  void OnBusRequest(const tarvex::BusRequest& request);

  std::uint64_t requests() const { return requests_; }
  std::uint64_t errors() const { return errors_; }

 private:
  Json::Value ResponseTo(const Request& request);
  Json::Value CarryOut(const Request& request);
  RequestError Failure(const Request& request) const;
  void Send(const InboundRequest& inbound, const Json::Value& response);

  const Options options_;
  RequestLine* const line_;
  const Host host_;
  std::set<std::string> names_;
  ResponseMemory memory_;
  std::size_t without_room_ = 0;  // turns that found none
  std::uint64_t requests_ = 0;
  std::uint64_t errors_ = 0;

  // Of the request that is being carried out.
  const Request* current_ = nullptr;
  std::optional<Json::Value> answer_;
  std::vector<tarvex::BusRequest> bus_requests_;
};

}  // namespace agent
