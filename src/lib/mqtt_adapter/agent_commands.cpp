// Requests to the camera's own agent services. Each service's queue is named like
// its request.
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
  /// Puts into the service's request what it is to get of the cloud's "body".
  /// @return false where that lacks a part of it.
  bool (*fill)(const Json::Value& body, Json::Value& request);
};

namespace {

bool FillNothing(const Json::Value& /*body*/, Json::Value& /*request*/) { return true; }

bool FillStream(const Json::Value& body, Json::Value& request) {
  const Json::Value& sn = Member(body, "sn");
  if (sn.isNull()) {
    return false;
  }
  request["body"]["sn"] = sn.asString();
  return true;
}

bool FillTalkback(const Json::Value& body, Json::Value& request) {
  const Json::Value& window_size = Member(body, "window_size");
  if (window_size.isNull() || !FillStream(body, request)) {
    return false;
  }
  request["body"]["window_size"] = window_size.asInt();
  return true;
}

std::string Text(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
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
  Json::Value& kept_request = KeptRequest(query.service);
  if (!query.fill(Member(payload, "body"), kept_request)) {
    return false;
  }
  std::string request;
  std::string reply;
  if (!Json::Json2String(kept_request, request) || version != kVersion ||
      !SendToAgentService(query.handler, query.service, request, kAgentTimeout_ms, &reply)) {
    return false;
  }
  // A reply that is not JSON counts as success, with a null body.
  const std::shared_ptr<const Json::Value> answer = ParsedReply(query.service, reply);
  Json::Value result;
  result["body"] = answer ? Member(*answer, "body") : Json::Value::nullSingleton();
  result["state_code"] = kStateOk;
  ADAPTER_LOG_AS(query.handler, kLogInfo, "%s:%s\n", query.name, Text(result).c_str());
  Publish(query.name, result, query.tag);
  return true;
}

bool MQTTAdapter::DoCmdBindDeviceList(const Json::Value& payload, const std::string& version,
                                      Json::Value& /*response*/) {
  return QueryAgentService(
      {__func__, "bind_device_list", "user_get_mate_info", kTagBindDeviceList, FillNothing},
      payload, version);
}

bool MQTTAdapter::DoCmdAgentRtspUrl(const Json::Value& payload, const std::string& version,
                                    Json::Value& /*response*/) {
  return QueryAgentService(
      {__func__, "agent_rtsp_url", "user_get_rtsp_info", kTagAgentRtspUrl, FillStream}, payload,
      version);
}

bool MQTTAdapter::DoCmdAgentTalkbackPort(const Json::Value& payload, const std::string& version,
                                         Json::Value& /*response*/) {
  return QueryAgentService({__func__, "agent_talkback_port", "user_request_talkback",
                            kTagAgentTalkbackPort, FillTalkback},
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
  Json::Value service_request;
  service_request["type"] = "stay_event_enable";
  service_request["body"] = body;
  std::string request;
  std::string reply;
  if (!Json::Json2String(service_request, request) || version != kVersion ||
      !SendToAgentService(__func__, "stay_event_enable", request, kStayEventTimeout_ms, &reply)) {
    return false;
  }
  ADAPTER_LOG(kLogInfo, "stay_event_enable success.");
  return true;
}

}  // namespace qex
