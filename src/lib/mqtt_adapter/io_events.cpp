// Switching inputs and serial input, forwarded one to one. Unlike the results,
// these two are published with their outer "body".
#include <cstdio>

#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {

void MQTTAdapter::OnGpioEvent(const std::string& text) {
  if (text.empty()) {
    return;
  }
  Json::Value event;
  if (!Json::String2Json(text, event)) {
    ADAPTER_LOG(kLogError, "OnGpioIn: Err data");
    return;
  }
  const Json::Value& body = Member(event, "body");
  Json::Value payload;
  Json::Value& alarm = payload["body"]["AlarmGioIn"];
  Json::Value& trigger = alarm["result"]["TriggerResult"];
  trigger["value"] = Member(body, "flag");
  trigger["source"] = Member(body, "source");
  alarm["serialno"] = m_sn_;
  alarm["deviceName"] = GetDevName();
  alarm["ipaddr"] = GetDeviceIpFromDb();
  std::string payload_text;
  Json::Json2String(payload, payload_text);
  ADAPTER_LOG(kLogDebug, "GetGpioPushData:%s", payload_text.c_str());
  Publish("gpio_in", payload, kTagGpioIn);
}

void MQTTAdapter::GetSerialPushData(const std::string& text) {
  if (text.empty()) {
    return;
  }
  ADAPTER_LOG(kLogInfo, "GetSerialPushData");
  Json::Value event;
  if (!Json::String2Json(text, event)) {
    ADAPTER_LOG(kLogError, "rs485: Err data");
    return;
  }
  const Json::Value& body = Member(event, "body");
  Json::Value payload;
  Json::Value& serial = payload["body"]["SerialData"];
  serial["serialno"] = m_sn_;
  // The name as last read, not asked anew as for an input: deliberate.
  serial["deviceName"] = m_dev_name_;
  serial["ipaddr"] = GetDeviceIpFromDb();
  serial["serialChannel"] = Member(body, "source").asInt();
  serial["data"] = Member(body, "rs485_data").asString();
  serial["dataLen"] = Member(body, "data_len").asInt();
  std::string payload_text;
  Json::Json2String(payload, payload_text);
  printf("GetSerialPushData:%s\n", payload_text.c_str());
  ADAPTER_LOG(kLogDebug, "GetSerialPushData:%s ", payload_text.c_str());
  Publish("serial_data", payload, kTagSerialData);
}

}  // namespace qex
