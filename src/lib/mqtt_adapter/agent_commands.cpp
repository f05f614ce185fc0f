// Requests to the camera's own agent services. Each service's queue is named like
// its request.
#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {
namespace {

std::string AgentRequest(const char* type, const Json::Value* body) {
  Json::Value request;
  request["type"] = type;
  if (body != nullptr) {
    request["body"] = *body;
  }
  std::string text;
  Json::Json2String(request, text);
  return text;
}

}  // namespace

/// Sends a request and logs a failure the way these services do: at level 6, in red.
bool MQTTAdapter::SendToAgentService(const char* function, const char* queue,
                                     const std::string& request, int timeout_ms,
                                     std::string* reply) {
  if (SendBusRequest(queue, request, timeout_ms, reply) < 1) {
    ADAPTER_LOG_AS(function, kLogInfo, "\033[31m send dp failed:%s \033[0m \n", request.c_str());
    return false;
  }
  return true;
}

/// The result of a service's reply; a reply that is not JSON counts as success and
/// gives a null body.
Json::Value MQTTAdapter::AgentResult(const std::string& reply, std::string* text) {
  Json::Value parsed;
  if (!Json::String2Json(reply, parsed)) {
    parsed = Json::Value();
  }
  Json::Value result;
  result["body"] = Member(parsed, "body");
  result["state_code"] = kStateOk;
  Json::Json2String(result, *text);
  return result;
}

bool MQTTAdapter::DoCmdBindDeviceList(const Json::Value& payload, const std::string& version,
                                      Json::Value& /*response*/) {
  if (!IsObjectWithType(payload, __func__) || !TypeIs(payload, "bind_device_list")) {
    return false;
  }
  const std::string request = AgentRequest("user_get_mate_info", nullptr);
  std::string reply;
  if (version != kVersion ||
      !SendToAgentService(__func__, "user_get_mate_info", request, kAgentTimeout_ms, &reply)) {
    return false;
  }
  std::string text;
  const Json::Value result = AgentResult(reply, &text);
  ADAPTER_LOG(kLogInfo, "bind_device_list:%s\n", text.c_str());
  Publish("bind_device_list", result, kTagBindDeviceList);
  return true;
}

bool MQTTAdapter::DoCmdAgentRtspUrl(const Json::Value& payload, const std::string& version,
                                    Json::Value& /*response*/) {
  if (!IsObjectWithType(payload, __func__) || !TypeIs(payload, "agent_rtsp_url")) {
    return false;
  }
  const Json::Value& sn = Member(Member(payload, "body"), "sn");
  if (sn.isNull()) {
    return false;
  }
  Json::Value body;
  body["sn"] = sn.asString();
  const std::string request = AgentRequest("user_get_rtsp_info", &body);
  std::string reply;
  if (version != kVersion ||
      !SendToAgentService(__func__, "user_get_rtsp_info", request, kAgentTimeout_ms, &reply)) {
    return false;
  }
  std::string text;
  const Json::Value result = AgentResult(reply, &text);
  ADAPTER_LOG(kLogInfo, "agent_rtsp_url:%s\n", text.c_str());
  Publish("agent_rtsp_url", result, kTagAgentRtspUrl);
  return true;
}

bool MQTTAdapter::DoCmdAgentTalkbackPort(const Json::Value& payload, const std::string& version,
                                         Json::Value& /*response*/) {
  if (!IsObjectWithType(payload, __func__) || !TypeIs(payload, "agent_talkback_port")) {
    return false;
  }
  const Json::Value& sn = Member(Member(payload, "body"), "sn");
  const Json::Value& window_size = Member(Member(payload, "body"), "window_size");
  if (sn.isNull() || window_size.isNull()) {
    return false;
  }
  Json::Value body;
  body["sn"] = sn.asString();
  body["window_size"] = window_size.asInt();
  const std::string request = AgentRequest("user_request_talkback", &body);
  std::string reply;
  if (version != kVersion ||
      !SendToAgentService(__func__, "user_request_talkback", request, kAgentTimeout_ms, &reply)) {
    return false;
  }
  std::string text;
  const Json::Value result = AgentResult(reply, &text);
  ADAPTER_LOG(kLogInfo, "agent_talkback_port:%s\n", text.c_str());
  Publish("agent_talkback_port", result, kTagAgentTalkbackPort);
  return true;
}

bool MQTTAdapter::DoCmdAgentLanectrlResultCfg(const Json::Value& payload,
                                              const std::string& version,
                                              Json::Value& /*response*/) {
  if (!IsObjectWithType(payload, __func__) || !TypeIs(payload, "lanectrl_result_cfg")) {
    return false;
  }
  const Json::Value& body = Member(payload, "body");
  if (!body.isArray()) {
    return false;
  }
  const std::string request = AgentRequest("stay_event_enable", &body);
  std::string reply;
  if (version != kVersion ||
      !SendToAgentService(__func__, "stay_event_enable", request, kStayEventTimeout_ms, &reply)) {
    return false;
  }
  ADAPTER_LOG(kLogInfo, "stay_event_enable success.");
  return true;
}

}  // namespace qex
