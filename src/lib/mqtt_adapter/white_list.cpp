// White-list changes and the white-list check switch. Answers are published; the
// request's own response stays as it is.
#include <exception>

#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {

bool MQTTAdapter::DoCmdForWLOperator(const Json::Value& payload, const std::string& version,
                                     Json::Value& /*response*/) {
  if (!CheckPayloadIsValid(payload) || !TypeIs(payload, "white_list_operator")) {
    return false;
  }
  const Json::Value& type = Member(Member(payload, "body"), "operator_type");
  if (!type.isString()) {
    return false;
  }
  const std::string operation = type.asString();
  ADAPTER_LOG(kLogInfo, "DoCmdForWLOperator:%s", operation.c_str());
  if (version != kVersion) {
    return false;
  }
  Json::Value result;
  result["state_code"] = kStateFailed;
  result["operator_type"] = type;
  if (operation == "delete") {
    return DeleteWlInfo(payload["body"], result) != 0;
  }
  if (operation == "update_or_add") {
    return ReplaceWlInfo(payload["body"], result) != 0;
  }
  if (operation != "select") {  // "select" is accepted and does nothing: deliberate.
    ADAPTER_LOG(kLogError, "operator_type:%s not support.", operation.c_str());
  }
  return false;
}

int MQTTAdapter::DeleteWlInfo(const Json::Value& body, Json::Value& result) {
  Json::Value request;
  request["type"] = "delete_white_list";
  if (HasMember(body, "plate")) {
    const Json::Value& plate = body["plate"];
    Json::Value& plates = request["body"]["plates"];
    if (plate.isArray()) {
      plates = plate;
    } else {
      plates.append(plate);
    }
  }
  int done = 0;
  std::string text;
  if (Json::Json2String(request, text)) {
    ADAPTER_LOG(kLogInfo, "req_data:%s", text.c_str());
    std::string reply;
    SendBusRequest(kQueueWhiteList, text, kWhiteListTimeout_ms, &reply);
    if (ParsedReply(kQueueWhiteList, reply)) {
      ADAPTER_LOG(kLogInfo, "Delete:%s", reply.c_str());
      result["state_code"] = kStateOk;
      done = 1;
    }
  }
  Publish("white_list_operator", result, kTagWhiteListOperator);
  return done;
}

int MQTTAdapter::ReplaceWlInfo(const Json::Value& body, Json::Value& result) {
  int done = 0;
  // The one handler with a guard of its own: it publishes its failure.
  try {
    Json::Value request;
    request["type"] = "replace_white_list";
    // Without a presence check, deliberately: a missing record becomes [null].
    const Json::Value& records = body["dldb_rec"];
    Json::Value& out = request["body"]["white_list_rec"];
    if (records.isArray()) {
      out = records;
    } else {
      out.append(records);
    }
    std::string text;
    std::string reply;
    if (Json::Json2String(request, text)) {
      SendBusRequest(kQueueWhiteList, text, kWhiteListTimeout_ms, &reply);
    }
    if (ParsedReply(kQueueWhiteList, reply)) {
      ADAPTER_LOG(kLogInfo, "Replace:%s", reply.c_str());
      result["state_code"] = kStateOk;
      done = 1;
    }
  } catch (const std::exception& caught) {
    ADAPTER_LOG(kLogError, "ReplaceWlInfo Failed:%s", caught.what());
    done = 0;
  }
  Publish("white_list_operator", result, kTagWhiteListOperator);
  return done;
}

int MQTTAdapter::SelectWlInfo(const Json::Value& body, Json::Value& result) {
  int done = 0;
  const Json::Value& plate = Member(body, "plate");
  if (plate.isString() && !plate.asString().empty()) {
    Json::Value request;
    request["type"] = "select_white_list";
    request["body"]["plate"] = plate;
    std::string text;
    std::string reply;
    if (Json::Json2String(request, text)) {
      SendBusRequest(kQueueWhiteList, text, kWhiteListSelectTimeout_ms, &reply);
    }
    if (const auto parsed = ParsedReply(kQueueWhiteList, reply)) {
      ADAPTER_LOG(kLogInfo, "Select:%s", reply.c_str());
      // "state_code" stays as it is: deliberate.
      result["dldb_rec"] = Member(Member(*parsed, "body"), "white_list_rec");
      done = 1;
    }
  }
  Publish("white_list_operator", result, kTagWhiteListOperator);
  return done;
}

bool MQTTAdapter::DoCmdWLCheckStatus(const Json::Value& payload, const std::string& version,
                                     Json::Value& /*response*/) {
  if (!CheckPayloadIsValid(payload) || !TypeIs(payload, "wl_check_status")) {
    return false;
  }
  const Json::Value& cmd = Member(Member(payload, "body"), "cmd");
  if (!cmd.isString()) {
    return false;
  }
  const std::string command = cmd.asString();
  ADAPTER_LOG(kLogInfo, "DoCmdWLCheckStatus, cmd:%s", command.c_str());
  if (version != kVersion) {
    return false;
  }
  if (command == "set") {
    return SetWLCheckStatus(payload["body"]) != 0;
  }
  if (command == "get") {
    return SendWLCheckStatus() != 0;
  }
  ADAPTER_LOG(kLogError, "cmd:%s not support.", command.c_str());
  return false;
}

int MQTTAdapter::SetWLCheckStatus(const Json::Value& body) {
  const Json::Value& enable = Member(body, "filter_enable");
  if (!enable.isInt() || enable.asInt() < 0 || enable.asInt() > 2) {
    ADAPTER_LOG(kLogError, "SetWLCheckStatus failed, filter_enable error.");
    return 0;
  }
  Json::Value& request = KeptRequest("set_wl_check_status");
  request["body"]["filter_enable"] = enable.asInt();
  std::string text;
  if (!Json::Json2String(request, text) ||
      !AskForJson(kQueueWhiteList, text, kWhiteListTimeout_ms)) {
    return 0;
  }
  return SendWLCheckStatus();
}

int MQTTAdapter::SendWLCheckStatus() {
  std::string text;
  if (!Json::Json2String(KeptRequest("get_wl_check_status"), text)) {
    return 0;
  }
  const std::shared_ptr<const Json::Value> status =
      AskForJson(kQueueWhiteList, text, kWhiteListTimeout_ms);
  if (!status) {
    return 0;
  }
  Publish("wl_check_status", *status, kTagWlCheckStatus);
  return 1;
}

}  // namespace qex
