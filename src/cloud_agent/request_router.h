// Requests of the cloud: every one gets exactly one response.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <json/value.h>

#include "cloud_agent/link.h"

namespace agent {

/// Used on the event thread, except where another is named.
class RequestRouter {
 public:
  /// Carries out a request; as BaseAdapter::RequestMessage.
  using Execute = std::function<bool(const std::string& name, const Json::Value& payload,
                                     const std::string& version, Json::Value& response)>;

  /// @param base      "<root>/<sn>".
  /// @param names     the requests that there are.
  /// @param max_bytes the largest request that is looked at.
  RequestRouter(std::string base, std::set<std::string> names, std::size_t max_bytes,
                Execute execute);

  /// Carries out a request.
  /// @return the response, once for each topic that it goes to. Throws nothing but
  ///         for lack of memory.
  std::vector<OutboundMessage> Answer(const InboundRequest& request);

  /// The response to a request that is not even looked at. Any thread.
  static std::vector<OutboundMessage> Refusal(const std::string& base,
                                              const InboundRequest& request,
                                              const std::string& error);

  /// What a request topic ends with: "<root>/<sn>/request/NAME"; empty without a name.
  static std::string RequestName(const std::string& base, const std::string& topic);

  std::uint64_t Requests() const { return requests_; }

  /// How many of them were answered with an error.
  std::uint64_t Errors() const { return errors_; }

 private:
  Json::Value Respond(const std::string& name, const InboundRequest& request);
  std::string Run(const std::string& name, const Json::Value& document, Json::Value* response);

  const std::string base_;
  const std::set<std::string> names_;
  const std::size_t max_bytes_;
  Execute execute_;
  std::uint64_t requests_ = 0;
  std::uint64_t errors_ = 0;
};

}  // namespace agent
