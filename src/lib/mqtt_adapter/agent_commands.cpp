// Requests to the camera's own agent services. Each service's queue is named like
// its request.
#include <optional>

#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {

/// A request that a service answers and that the answer is published for.
struct MQTTAdapter::AgentQuery {
  const char* handler;  ///< whose name its log entries carry
  const char* name;     ///< of the request and of the publication
  const char* service;
  PublishTag tag;
  /// What the service is to get as its "body", from the request's: null for none at all,
  /// nothing where the request lacks a part of it.
  std::optional<Json::Value> (*parameters)(const Json::Value& body);
};

namespace {

std::optional<Json::Value> NoParameters(const Json::Value& /*body*/) { return Json::Value(); }

std::optional<Json::Value> StreamParameters(const Json::Value& body) {
  const Json::Value& sn = Member(body, "sn");
  if (sn.isNull()) {
    return std::nullopt;
  }
  Json::Value parameters;
  parameters["sn"] = sn.asString();
  return parameters;
}

std::optional<Json::Value> TalkbackParameters(const Json::Value& body) {
  const Json::Value& sn = Member(body, "sn");
  const Json::Value& window_size = Member(body, "window_size");
  if (sn.isNull() || window_size.isNull()) {
    return std::nullopt;
  }
  Json::Value parameters;
  parameters["sn"] = sn.asString();
  parameters["window_size"] = window_size.asInt();
  return parameters;
}

std::string AgentRequest(const char* type, const Json::Value& parameters) {
  Json::Value request;
  request["type"] = type;
  if (!parameters.isNull()) {
    request["body"] = parameters;
  }
  std::string text;
  Json::Json2String(request, text);
  return text;
}

}  // namespace

/// Sends a request and logs a failure the way these services do: at level 6, in red.
bool MQTTAdapter::SendToAgentService(const char* handler, const char* service,
                                     const std::string& request, int timeout_ms,
                                     std::string* reply) {
  if (SendBusRequest(service, request, timeout_ms, reply) < 1) {
    ADAPTER_LOG_AS(handler, kLogInfo, "\033[31m send dp failed:%s \033[0m \n", request.c_str());
    return false;
  }
  return true;
}

bool MQTTAdapter::QueryAgentService(const AgentQuery& query, const Json::Value& payload,
                                    const std::string& version) {
  if (!IsRequest(payload, query.name, query.handler)) {
    return false;
  }
  const std::optional<Json::Value> parameters = query.parameters(Member(payload, "body"));
  if (!parameters) {
    return false;
  }
  const std::string request = AgentRequest(query.service, *parameters);
  std::string reply;
  if (version != kVersion ||
      !SendToAgentService(query.handler, query.service, request, kAgentTimeout_ms, &reply)) {
    return false;
  }
  // A reply that is not JSON counts as success, with a null body.
  Json::Value answer = ParsedReply(reply).value_or(Json::Value());
  Json::Value result;
  result["body"] = TakeMember(answer, "body");
  result["state_code"] = kStateOk;
  std::string text;
  Json::Json2String(result, text);
  ADAPTER_LOG_AS(query.handler, kLogInfo, "%s:%s\n", query.name, text.c_str());
  Publish(query.name, result, query.tag);
  return true;
}

bool MQTTAdapter::DoCmdBindDeviceList(const Json::Value& payload, const std::string& version,
                                      Json::Value& /*response*/) {
  return QueryAgentService(
      {__func__, "bind_device_list", "user_get_mate_info", kTagBindDeviceList, NoParameters},
      payload, version);
}

bool MQTTAdapter::DoCmdAgentRtspUrl(const Json::Value& payload, const std::string& version,
                                    Json::Value& /*response*/) {
  return QueryAgentService(
      {__func__, "agent_rtsp_url", "user_get_rtsp_info", kTagAgentRtspUrl, StreamParameters},
      payload, version);
}

bool MQTTAdapter::DoCmdAgentTalkbackPort(const Json::Value& payload, const std::string& version,
                                         Json::Value& /*response*/) {
  return QueryAgentService({__func__, "agent_talkback_port", "user_request_talkback",
                            kTagAgentTalkbackPort, TalkbackParameters},
                           payload, version);
}

bool MQTTAdapter::DoCmdAgentLanectrlResultCfg(const Json::Value& payload,
                                              const std::string& version,
                                              Json::Value& /*response*/) {
  if (!IsRequest(payload, "lanectrl_result_cfg", __func__)) {
    return false;
  }
  const Json::Value& body = Member(payload, "body");
  if (!body.isArray()) {
    return false;
  }
  const std::string request = AgentRequest("stay_event_enable", body);
  std::string reply;
  if (version != kVersion ||
      !SendToAgentService(__func__, "stay_event_enable", request, kStayEventTimeout_ms, &reply)) {
    return false;
  }
  ADAPTER_LOG(kLogInfo, "stay_event_enable success.");
  return true;
}

}  // namespace qex
