#include "cloud_agent/request_router.h"

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

bool IsPublishable(const std::string& topic) {
  return !topic.empty() && topic.size() <= 0xFFFF && topic.front() != '$' &&
         topic.find_first_of("+#") == std::string::npos && topic.find('\0') == std::string::npos;
}

std::vector<OutboundMessage> Addressed(const std::string& base, const InboundRequest& request,
                                       const Json::Value& response) {
  OutboundMessage message;
  if (!Json::Json2String(response, message.payload)) {
    message.payload = R"({"result":false,"error":"the response cannot be written as JSON"})";
  }
  message.has_correlation_data = request.has_correlation_data;
  message.correlation_data = request.correlation_data;

  std::vector<OutboundMessage> messages;
  const std::string prefix = base + "/request";
  if (request.topic.compare(0, prefix.size(), prefix) == 0) {
    message.topic = base + "/response" + request.topic.substr(prefix.size());
    messages.push_back(message);
  }
  if (request.response_topic.empty() || request.response_topic == message.topic) {
    return messages;
  }
  if (!IsPublishable(request.response_topic)) {
    SYS_LOG(kLogWarning, "response topic refused: %s", request.response_topic.c_str());
    return messages;
  }
  message.topic = request.response_topic;
  messages.push_back(std::move(message));
  return messages;
}

}  // namespace

RequestRouter::RequestRouter(std::string base, std::set<std::string> names, std::size_t max_bytes,
                             Execute execute)
    : base_(std::move(base)),
      names_(std::move(names)),
      max_bytes_(max_bytes),
      execute_(std::move(execute)) {}

std::string RequestRouter::RequestName(const std::string& base, const std::string& topic) {
  const std::string prefix = base + "/request/";
  return topic.compare(0, prefix.size(), prefix) == 0 ? topic.substr(prefix.size()) : "";
}

std::vector<OutboundMessage> RequestRouter::Answer(const InboundRequest& request) {
  ++requests_;
  const std::string name = RequestName(base_, request.topic);
  const Json::Value response = Respond(name, request);
  if (response.isMember("error")) {
    ++errors_;
    SYS_LOG(kLogWarning, "request %s: %s", name.substr(0, kMaxNameShown_bytes).c_str(),
            response["error"].asCString());
  }
  return Addressed(base_, request, response);
}

std::vector<OutboundMessage> RequestRouter::Refusal(const std::string& base,
                                                    const InboundRequest& request,
                                                    const std::string& error) {
  Json::Value response(Json::objectValue);
  Json::Value document;
  if (Json::String2Json(request.payload, document) && document.isObject() &&
      IsUsableId(document["id"])) {
    response["id"] = document["id"];
  }
  response["result"] = false;
  response["error"] = error;
  return Addressed(base, request, response);
}

Json::Value RequestRouter::Respond(const std::string& name, const InboundRequest& request) {
  Json::Value response(Json::objectValue);
  response["result"] = false;
  if (request.size > max_bytes_) {
    response["error"] = "the request has " + std::to_string(request.size) +
                        " bytes, more than the " + std::to_string(max_bytes_) + " allowed";
    return response;
  }
  Json::Value document;
  if (request.payload.empty()) {
    response["error"] = "the request is empty";
    return response;
  }
  if (!Json::String2Json(request.payload, document)) {
    response["error"] = "the request is not JSON";
    return response;
  }
  if (!document.isObject()) {
    response["error"] = "the request is not a JSON object";
    return response;
  }
  if (document.isMember("id")) {
    if (!IsUsableId(document["id"])) {
      response["error"] = "\"id\" is neither a number nor a text of at most 256 bytes";
      return response;
    }
    response["id"] = document["id"];
  }
  const std::string error =
      request.retained ? "retained requests are not carried out" : Run(name, document, &response);
  if (!error.empty()) {
    response["error"] = error;
  }
  return response;
}

std::string RequestRouter::Run(const std::string& name, const Json::Value& document,
                               Json::Value* response) {
  if (names_.count(name) == 0) {
    return "unknown request \"" + name.substr(0, kMaxNameShown_bytes) + "\"";
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
  Json::Value answer;
  bool is_done = false;
  try {
    is_done = execute_(name, document["payload"], document["version"].asString(), answer);
  } catch (...) {
    return "the request failed";
  }
  (*response)["result"] = is_done;
  (*response)["response"] = answer;
  return is_done ? "" : "the camera refused or did not carry out the request";
}

}  // namespace agent
