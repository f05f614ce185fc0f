// Requests that act on the camera directly or read one value from it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "chw_info.h"
#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {
namespace {

/// The trigger request, byte for byte as the recognition service knows it.
constexpr char kTriggerRequest[] =
    "\t{\t\t\"type\" : \"AVS_TRIGGER\",\t\t\"body\" : {\t\t\t\"trigger_result\" :  1,"
    "\t\t\t\"trigger_type\" :  4\t\t}\t}";
static_assert(sizeof(kTriggerRequest) - 1 == 91, "the trigger request is 91 bytes");

/// Body of the GPIO request, as it travels.
struct GpioControl {
  int32_t io;
  int32_t value;
  int32_t delay;
};
static_assert(sizeof(GpioControl) == 12, "the GPIO record is three words");

int32_t IntOrZero(const Json::Value& value) { return value.isNull() ? 0 : value.asInt(); }

/// A part of a date: its key, and its range with both ends included.
struct DatePart {
  const char* key;
  unsigned int lowest;
  unsigned int highest;
};

constexpr DatePart kDateParts[] = {
    {"year", 1970, 2038}, {"month", 1, 12}, {"day", 1, 31},
    {"hour", 0, 23},      {"min", 0, 59},   {"sec", 0, 61},
};

}  // namespace

bool MQTTAdapter::DoCmdTrigger(const Json::Value& /*payload*/, const std::string& version,
                               Json::Value& /*response*/) {
  if (!m_dp_client_ || version != kVersion) {
    return false;
  }
  std::string reply;
  const bool answered =
      SendBusRequest(kQueueRecognition, kTriggerRequest, kTriggerTimeout_ms, &reply) >= 1;
  if (!answered) {
    printf("\033[31m send dp failed:%s \033[0m \n", kTriggerRequest);
  }
  return answered;
}

bool MQTTAdapter::DoCmdGpioOut(const Json::Value& payload, const std::string& /*version*/,
                               Json::Value& /*response*/) {
  if (!m_dp_client_ || !TypeIs(payload, "gpio_out")) {
    return false;
  }
  ADAPTER_LOG(kLogInfo, "ioctl!");
  // A missing body is all zeros; on one of another shape no output moves.
  const Json::Value& body = payload["body"];
  if (!body.isNull() && !body.isObject()) {
    ADAPTER_LOG(kLogWarning, "invalid body, not json object");
    return false;
  }
  GpioControl control = {IntOrZero(body["io"]), IntOrZero(body["value"]), IntOrZero(body["delay"])};
  if (static_cast<uint32_t>(control.value) > 2) {
    control.value = 0;
  }
  ADAPTER_LOG(kLogInfo, "ioctl @@ gpio(%d) eValue(%d) delay(%d)", control.io, control.value,
              control.delay);
  std::string reply;
  const std::string record(reinterpret_cast<const char*>(&control), sizeof(control));
  // Any result but 0 counts, a negative one too: deliberate.
  return SendBusRequest(kQueueGpio, record, kGpioTimeout_ms, &reply) != 0;
}

bool MQTTAdapter::DoCmdSetTime(const Json::Value& payload, const std::string& version,
                               Json::Value& /*response*/) {
  if (!IsRequest(payload, "set_time", __func__)) {
    return false;
  }
  const Json::Value& body = Member(payload, "body");
  for (const DatePart& part : kDateParts) {
    if (!HasMember(body, part.key)) {
      return false;
    }
  }
  int date[6] = {};
  for (size_t i = 0; i < 6; ++i) {
    // As atoi reads it: what does not start with a number is 0.
    date[i] = atoi(body[kDateParts[i].key].asString().c_str());  // NOLINT(cert-err34-c)
  }
  for (size_t i = 0; i < 6; ++i) {
    const auto value = static_cast<unsigned int>(date[i]);
    if (value < kDateParts[i].lowest || value > kDateParts[i].highest) {
      return false;
    }
  }
  // Padded with blanks, not zeros: the clock service expects exactly this.
  char text[64];
  snprintf(text, sizeof(text), "%4d-%2d-%2d %2d:%2d:%2d", date[0], date[1], date[2], date[3],
           date[4], date[5]);
  Json::Value& request = KeptRequest("ss_set_timing");
  request["body"]["datetime"] = text;
  std::string request_text;
  // The version only now, with the request already built: deliberate.
  if (!Json::Json2String(request, request_text) || version != kVersion) {
    return false;
  }
  std::string reply;
  if (SendBusRequest(kQueueSystem, request_text, kSetTimeTimeout_ms, &reply) < 1) {
    ADAPTER_LOG(kLogError, "send dp failed:%s ", request_text.c_str());
    return false;
  }
  ADAPTER_LOG(kLogInfo, "set_time success.");
  return true;
}

bool MQTTAdapter::DoCmdReboot(const Json::Value& payload, const std::string& version,
                              Json::Value& /*response*/) {
  if (!IsRequest(payload, "reboot_dev", __func__) || version != kVersion) {
    return false;
  }
  std::string request_text;
  std::string reply;
  return Json::Json2String(KeptRequest("reboot_dev"), request_text) &&
         SendBusRequest(kQueueSystem, request_text, kRebootTimeout_ms, &reply) > 0;
}

bool MQTTAdapter::DoCmdGetSn(const Json::Value& payload, const std::string& version,
                             Json::Value& /*response*/) {
  if (!CheckPayloadIsValid(payload) || !TypeIs(payload, "get_sn") || version != kVersion) {
    return false;
  }
  Json::Value answer;
  answer["value"] = hw_sn();
  Publish("get_sn", answer, kTagGetSn);
  return true;
}

bool MQTTAdapter::DoCmdGetDeviceTimestamp(const Json::Value& payload, const std::string& version,
                                          Json::Value& response) {
  if (!CheckPayloadIsValid(payload) || !TypeIs(payload, "get_device_timestamp") ||
      version != kVersion) {
    return false;
  }
  // Unlike most, this one fills the response and publishes that very object.
  response["timestamp"] = static_cast<Json::Int64>(time(nullptr));
  Publish("get_device_timestamp", response, kTagGetDeviceTimestamp);
  return true;
}

bool MQTTAdapter::DoCmdGetIoOutStatus(const Json::Value& payload, const std::string& version,
                                      Json::Value& /*response*/) {
  if (!CheckPayloadIsValid(payload) || !TypeIs(payload, "get_io_out_status") ||
      version != kVersion) {
    return false;
  }
  const Json::Value& gpio = Member(Member(payload, "body"), "gpio");
  if (!gpio.isInt()) {
    return false;
  }
  Json::Value& request = KeptRequest("evs_get_gpioout");
  request["body"]["source"] = gpio;
  std::string request_text;
  if (!Json::Json2String(request, request_text)) {
    return false;
  }
  // What counts is the reply, not the result of the send.
  const std::shared_ptr<const Json::Value> status =
      AskForJson(kQueueDevices, request_text, kIoOutStatusTimeout_ms);
  if (!status) {
    return false;
  }
  Json::Value answer;
  answer["value"] = Member(Member(*status, "body"), "gpio_out_status");
  answer["gpio"] = gpio;
  Publish("get_io_out_status", answer, kTagGetIoOutStatus);
  return true;
}

}  // namespace qex
