// Requests of the cloud: reading them, and making the one response that each gets.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include <json/value.h>

#include "cloud_agent/mqtt/link.h"

namespace agent {

struct Topics {
  std::string root;  ///< such as "cameras"
  std::string base;  ///< "<root>/<sn>"
};

/// A request as it was read. It can be carried out when `error` is empty.
struct Request {
  std::string name;  ///< what its topic ends with, "<base>/request/NAME"
  Json::Value id;    ///< null without one that could be read
  std::string version;
  Json::Value payload;
  std::string error;  ///< what is wrong with it
};

/// @param names     the requests that there are.
/// @param max_bytes the largest request that is looked at.
Request ReadRequest(const InboundRequest& inbound, const Topics& topics,
                    const std::set<std::string>& names, std::size_t max_bytes);

/// What a request came to.
/// @param response what the plug-in filled in; ignored where there is an error.
Json::Value ResponseJson(const Request& request, bool is_done, const Json::Value& response);

/// @return the response, once for each topic that it goes to: "<base>/response/NAME",
///         and the one that the request names, where that is allowed.
std::vector<OutboundMessage> Responses(const InboundRequest& inbound, const Topics& topics,
                                       const Json::Value& response);

/// The response to a request that is not even looked at. Any thread.
std::vector<OutboundMessage> Refusal(const InboundRequest& inbound, const Topics& topics,
                                     const std::string& error);

}  // namespace agent
