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
  Json::Value& alarm = payload[Key("body")][Key("AlarmGioIn")];
  Json::Value& trigger = alarm[Key("result")][Key("TriggerResult")];
  trigger[Key("value")] = Member(body, "flag");
  trigger[Key("source")] = Member(body, "source");
  alarm[Key("serialno")] = m_sn_;
  alarm[Key("deviceName")] = GetDevName();
  alarm[Key("ipaddr")] = GetDeviceIpFromDb();
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
  Json::Value& serial = payload[Key("body")][Key("SerialData")];
  serial[Key("serialno")] = m_sn_;
  // The name as last read, not asked anew as for an input: deliberate.
  serial[Key("deviceName")] = m_dev_name_;
  serial[Key("ipaddr")] = GetDeviceIpFromDb();
  serial[Key("serialChannel")] = Member(body, "source").asInt();
  serial[Key("data")] = Member(body, "rs485_data").asString();
  serial[Key("dataLen")] = Member(body, "data_len").asInt();
  std::string payload_text;
  Json::Json2String(payload, payload_text);
  printf("GetSerialPushData:%s\n", payload_text.c_str());
  ADAPTER_LOG(kLogDebug, "GetSerialPushData:%s ", payload_text.c_str());
  Publish("serial_data", payload, kTagSerialData);
}

}  // namespace qex
