#include "cloud_agent/requests.h"

#include <utility>

#include "json_text.h"
#include "platform/log.h"

namespace agent {
namespace {

// A longer id is an error: responses wait in memory.
constexpr std::size_t kMaxId_bytes = 256;
constexpr std::size_t kMaxNameShown_bytes = 64;

bool IsUsableId(const Json::Value& id) {
  return id.isNumeric() || (id.isString() && id.asString().size() <= kMaxId_bytes);
}

bool BeginsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// Below the root a requester could have a message published as if by any camera.
bool IsAllowedResponseTopic(const std::string& topic, const Topics& topics) {
  const bool is_publishable = !topic.empty() && topic.size() <= 0xFFFF && topic.front() != '$' &&
                              topic.find_first_of("+#") == std::string::npos &&
                              topic.find('\0') == std::string::npos;
  const bool is_below_root = topic == topics.root || BeginsWith(topic, topics.root + "/");
  return is_publishable && (!is_below_root || BeginsWith(topic, topics.base + "/response/"));
}

/// Fills in what the document says. @return what is wrong with it, or empty.
std::string ReadDocument(const Json::Value& document, bool is_retained,
                         const std::set<std::string>& names, Request* request) {
  if (!document.isObject()) {
    return "the request is not a JSON object";
  }
  if (document.isMember("id")) {
    if (!IsUsableId(document["id"])) {
      return "\"id\" is neither a number nor a text of at most 256 bytes";
    }
    request->id = document["id"];
  }
  if (is_retained) {
    return "retained requests are not carried out";
  }
  if (names.count(request->name) == 0) {
    return "unknown request \"" + request->name.substr(0, kMaxNameShown_bytes) + "\"";
  }
  if (!document.isMember("version")) {
    return "\"version\" is missing";
  }
  if (!document["version"].isString()) {
    return "\"version\" is not a text";
  }
  if (!document.isMember("payload")) {
    return "\"payload\" is missing";
  }
  request->version = document["version"].asString();
  request->payload = document["payload"];
  return "";
}

}  // namespace

Request ReadRequest(const InboundRequest& inbound, const Topics& topics,
                    const std::set<std::string>& names, std::size_t max_bytes) {
  Request request;
  const std::string prefix = topics.base + "/request/";
  if (BeginsWith(inbound.topic, prefix)) {
    request.name = inbound.topic.substr(prefix.size());
  }
  Json::Value document;
  if (inbound.size > max_bytes) {
    request.error = "the request has " + std::to_string(inbound.size) + " bytes, more than the " +
                    std::to_string(max_bytes) + " allowed";
  } else if (inbound.payload.empty()) {
    request.error = "the request is empty";
  } else if (!Json::String2Json(inbound.payload, document)) {
    request.error = "the request is not JSON";
  } else {
    request.error = ReadDocument(document, inbound.retained, names, &request);
  }
  return request;
}

Json::Value ResponseJson(const Request& request, bool is_done, const Json::Value& response) {
  Json::Value document(Json::objectValue);
  if (!request.id.isNull()) {
    document["id"] = request.id;
  }
  document["result"] = is_done;
  if (!request.error.empty()) {
    document["error"] = request.error;
    return document;
  }
  document["response"] = response;
  if (!is_done) {
    document["error"] = "the camera refused or did not carry out the request";
  }
  return document;
}

std::vector<OutboundMessage> Responses(const InboundRequest& inbound, const Topics& topics,
                                       const Json::Value& response) {
  OutboundMessage message;
  if (!Json::Json2String(response, message.payload)) {
    message.payload = R"({"result":false,"error":"the response cannot be written as JSON"})";
  }
  message.has_correlation_data = inbound.has_correlation_data;
  message.correlation_data = inbound.correlation_data;

  std::vector<OutboundMessage> messages;
  const std::string prefix = topics.base + "/request";
  if (BeginsWith(inbound.topic, prefix)) {
    message.topic = topics.base + "/response" + inbound.topic.substr(prefix.size());
    messages.push_back(message);
  }
  if (inbound.response_topic.empty() || inbound.response_topic == message.topic) {
    return messages;
  }
  if (!IsAllowedResponseTopic(inbound.response_topic, topics)) {
    SYS_LOG(kLogWarning, "response topic refused: %s", inbound.response_topic.c_str());
    return messages;
  }
  message.topic = inbound.response_topic;
  messages.push_back(std::move(message));
  return messages;
}

std::vector<OutboundMessage> Refusal(const InboundRequest& inbound, const Topics& topics,
                                     const std::string& error) {
  Request request;
  Json::Value document;
  if (Json::String2Json(inbound.payload, document) && document.isObject() &&
      IsUsableId(document["id"])) {
    request.id = document["id"];
  }
  request.error = error;
  return Responses(inbound, topics, ResponseJson(request, false, Json::Value()));
}

}  // namespace agent
