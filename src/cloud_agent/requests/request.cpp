#include "cloud_agent/requests/request.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <json/reader.h>

#include "json_text.h"

namespace agent {
namespace {

using std::chrono::milliseconds;

// A longer id or key is an error: responses wait in memory.
constexpr std::size_t kMaxId_bytes = 256;
constexpr std::size_t kMaxKey_bytes = 128;
constexpr int kLongestExpiry_ms = 24 * 60 * 60 * 1000;

bool IsUsableId(const Json::Value& id) {
  return id.isNumeric() || (id.isString() && id.asString().size() <= kMaxId_bytes);
}

bool BeginsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

bool IsBelow(const std::string& topic, const std::string& prefix) {
  return topic.size() > prefix.size() && BeginsWith(topic, prefix);
}

/// Elsewhere a requester could have the camera publish what looks like another's message.
/// @return nothing wrong without a response topic, too.
RequestError CheckResponseTopic(const std::string& topic, const Topics& topics) {
  if (topic.empty()) {
    return {};
  }
  const std::string own = topics.base + "/response/";
  const std::string others = topics.response_root + "/";
  const bool is_allowed =
      IsBelow(topic, own) || (!topics.response_root.empty() && IsBelow(topic, others));
  if (is_allowed && topic.size() <= 0xFFFF && topic.find_first_of("+#") == std::string::npos &&
      topic.find('\0') == std::string::npos) {
    return {};
  }
  const std::string allowed = topics.response_root.empty()
                                  ? own + "; the agent's --response-root allows others"
                                  : own + " or, as the agent's --response-root says, " + others;
  return {code::kBadResponseTopic, "the response topic \"" + topic.substr(0, kMaxNameShown_bytes) +
                                       "\" is no topic below " + allowed};
}

/// The id of a text that may be cut off or malformed after it; null without one.
Json::Value IdOf(const std::string& text) {
  Json::CharReaderBuilder builder;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value document;
  try {
    // What was read before the error stays in the document.
    reader->parse(text.data(), text.data() + text.size(), &document, nullptr);
  } catch (const std::exception&) {  // nested too deeply
  }
  if (!document.isObject() || !IsUsableId(document["id"])) {
    return {};
  }
  return document["id"];
}

RequestError ReadMembers(const Json::Value& document, InboundRequest::TimePoint received_at,
                         Request* request) {
  if (!document.isMember("version")) {
    return {code::kWrongVersion, "\"version\" is missing"};
  }
  if (!document["version"].isString()) {
    return {code::kWrongVersion, "\"version\" is not a text"};
  }
  if (!document.isMember("payload")) {
    return {code::kNoPayload, "\"payload\" is missing"};
  }
  if (document.isMember("expires_ms")) {
    const Json::Value& expires = document["expires_ms"];
    if (!expires.isInt() || expires.asInt() < 0 || expires.asInt() > kLongestExpiry_ms) {
      return {code::kBadMember, "\"expires_ms\" is no number of milliseconds from 0 to 86400000"};
    }
    const auto at = received_at + milliseconds(expires.asInt());
    request->expires_at = std::min(request->expires_at.value_or(at), at);
  }
  if (document.isMember("idempotency_key")) {
    const Json::Value& key = document["idempotency_key"];
    if (!key.isString() || key.asString().empty() || key.asString().size() > kMaxKey_bytes) {
      return {code::kBadMember, "\"idempotency_key\" is not a text of 1 to 128 bytes"};
    }
    request->idempotency_key = key.asString();
  }
  request->version = document["version"].asString();
  request->payload = document["payload"];
  return {};
}

RequestError ReadDocument(const Json::Value& document, const InboundRequest& inbound,
                          const std::set<std::string>& names, Request* request) {
  if (!document.isObject()) {
    return {code::kNotJson, "the request is not a JSON object"};
  }
  if (document.isMember("id")) {
    if (!IsUsableId(document["id"])) {
      return {code::kBadMember, "\"id\" is neither a number nor a text of at most 256 bytes"};
    }
    request->id = document["id"];
  }
  if (inbound.retained) {
    return {code::kRetained, "retained requests are not carried out"};
  }
  if (names.count(request->name) == 0) {
    return {code::kUnknownName,
            "unknown request \"" + request->name.substr(0, kMaxNameShown_bytes) + "\""};
  }
  return ReadMembers(document, inbound.received_at, request);
}

}  // namespace

Request ReadRequest(const InboundRequest& inbound, const Topics& topics,
                    const std::set<std::string>& names, std::size_t max_bytes) {
  Request request;
  const std::string prefix = topics.base + "/request/";
  if (BeginsWith(inbound.topic, prefix)) {
    request.name = inbound.topic.substr(prefix.size());
  }
  if (inbound.expires_in) {
    request.expires_at = inbound.received_at + *inbound.expires_in;
  }
  Json::Value document;
  request.error = CheckResponseTopic(inbound.response_topic, topics);
  if (request.error) {
    // The requester waits at a topic where nothing will come: nothing is to happen either.
  } else if (inbound.size > max_bytes) {
    request.error = {code::kTooLarge, "the request has " + std::to_string(inbound.size) +
                                          " bytes, more than the " + std::to_string(max_bytes) +
                                          " allowed"};
  } else if (inbound.payload.empty()) {
    request.error = {code::kNotJson, "the request is empty"};
  } else if (!Json::String2Json(inbound.payload, document)) {
    request.error = {code::kNotJson, "the request is not JSON"};
  } else {
    request.error = ReadDocument(document, inbound, names, &request);
    return request;
  }
  request.id = IdOf(inbound.payload);
  return request;
}

Json::Value ErrorJson(const RequestError& error) {
  Json::Value document(Json::objectValue);
  document["result"] = false;
  document["code"] = error.code;
  document["error"] = error.text;
  return document;
}

std::vector<OutboundMessage> Responses(const InboundRequest& inbound, const Topics& topics,
                                       const Json::Value& response) {
  OutboundMessage message;
  if (!Json::Json2String(response, message.payload)) {
    message.payload =
        R"({"result":false,"code":"failed","error":"the response cannot be written as JSON"})";
  }
  message.has_correlation_data = inbound.has_correlation_data;
  message.correlation_data = inbound.correlation_data;

  std::vector<OutboundMessage> messages;
  const std::string prefix = topics.base + "/request";
  if (BeginsWith(inbound.topic, prefix)) {
    message.topic = topics.base + "/response" + inbound.topic.substr(prefix.size());
    messages.push_back(message);
  }
  if (inbound.response_topic.empty() || inbound.response_topic == message.topic ||
      CheckResponseTopic(inbound.response_topic, topics)) {
    return messages;
  }
  message.topic = inbound.response_topic;
  messages.push_back(std::move(message));
  return messages;
}

std::vector<OutboundMessage> Refusal(const InboundRequest& inbound, const Topics& topics,
                                     const RequestError& error) {
  Json::Value response = ErrorJson(error);
  const Json::Value id = IdOf(inbound.payload);
  if (!id.isNull()) {
    response["id"] = id;
  }
  return Responses(inbound, topics, response);
}

}  // namespace agent
