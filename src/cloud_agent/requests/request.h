// Requests of the cloud: reading them, and making the one response that each gets.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <json/value.h>

#include "cloud_agent/mqtt/link.h"

namespace agent {

struct Topics {
  std::string base;  ///< "<root>/<sn>", such as "cameras/CAM1"
  /// Below it, too, are response topics that requests may name; empty: below
  /// "<base>/response/" only.
  std::string response_root;
};

/// What a response's "code" can be; contract/asyncapi.json says what brings each about.
namespace code {
constexpr char kNotJson[] = "not_json";
constexpr char kNoPayload[] = "no_payload";
constexpr char kUnknownName[] = "unknown_name";
constexpr char kWrongVersion[] = "wrong_version";
constexpr char kBadMember[] = "bad_member";
constexpr char kBadResponseTopic[] = "bad_response_topic";
constexpr char kTooLarge[] = "too_large";
constexpr char kBusy[] = "busy";
constexpr char kRetained[] = "retained";
constexpr char kExpired[] = "expired";
constexpr char kKeyReused[] = "key_reused";
constexpr char kRefused[] = "refused";
constexpr char kOfflineDevice[] = "offline_device";
constexpr char kFailed[] = "failed";
}  // namespace code

/// How much of a name that a requester has chosen stands in texts and in the log.
constexpr std::size_t kMaxNameShown_bytes = 64;

/// Why a request is not carried out, or was not; no code: nothing is wrong.
struct RequestError {
  std::string code;
  std::string text;  ///< for people

  explicit operator bool() const { return !code.empty(); }
};

/// A request as it was read. It can be carried out when there is no error.
struct Request {
  std::string name;  ///< what its topic ends with, "<base>/request/NAME"
  Json::Value id;    ///< null without one that could be read
  std::string version;
  Json::Value payload;
  std::string idempotency_key;  ///< empty without one
  std::optional<InboundRequest::TimePoint> expires_at;
  RequestError error;
};

/// @param names     the requests that there are.
/// @param max_bytes the largest request that is looked at; of a larger one only the id is.
Request ReadRequest(const InboundRequest& inbound, const Topics& topics,
                    const std::set<std::string>& names, std::size_t max_bytes);

/// A response that says what is wrong with the request, without its id.
Json::Value ErrorJson(const RequestError& error);

/// @return the response, once for each topic that it goes to: "<base>/response/NAME",
///         and the one that the request names. Nothing is published on one that is not
///         allowed, of which ReadRequest() makes an error.
std::vector<OutboundMessage> Responses(const InboundRequest& inbound, const Topics& topics,
                                       const Json::Value& response);

/// The response to a request that has no turn. Any thread.
std::vector<OutboundMessage> Refusal(const InboundRequest& inbound, const Topics& topics,
                                     const RequestError& error);

}  // namespace agent
