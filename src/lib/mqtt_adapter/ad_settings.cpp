// Voice prompts and display brightness: two groups of one configuration record,
// which is read and written whole. None of the handlers looks at the payload's
// type or at the version: deliberate. The device says led where the cloud says lcd.
#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {
namespace {

constexpr char kReadRequest[] = R"({"type":"get_ad_voice_config","module":"AD_CONFIG_REQUESTION"})";

/// With the settings of the record.
Json::Value WriteRequest(const Json::Value& record) {
  Json::Value request;
  request["type"] = "set_ad_voice_config";
  request["module"] = "AD_CONFIG_REQUESTION";
  request["body"] = Member(record, "body");
  return request;
}

}  // namespace

std::shared_ptr<const Json::Value> MQTTAdapter::ReadAdRecord() {
  std::string reply;
  // Any result but 0 counts here, a negative one too: deliberate.
  if (SendBusRequest(kQueueAdSettings, kReadRequest, kAdSettingsTimeout_ms, &reply) == 0) {
    return nullptr;
  }
  return ParsedReply(kQueueAdSettings, reply);
}

bool MQTTAdapter::WriteAdRecord(const Json::Value& request, Json::Value& response) {
  std::string text;
  std::string reply;
  if (!Json::Json2String(request, text) ||
      SendBusRequest(kQueueAdSettings, text, kAdSettingsTimeout_ms, &reply) == 0) {
    return false;
  }
  // "state" here, not "state_code" as elsewhere: deliberate.
  response["state"] = kStateOk;
  return true;
}

bool MQTTAdapter::DoCmdGetAdVoice(const Json::Value& /*payload*/, const std::string& /*version*/,
                                  Json::Value& response) {
  const std::shared_ptr<const Json::Value> record = ReadAdRecord();
  if (!record) {
    return false;
  }
  const Json::Value& settings = Member(*record, "body");
  response["body"]["media_voice_time_ctrl"] = Member(settings, "media_voice_time_ctrl");
  Publish("get_ad_voice", response, kTagGetAdVoice);
  return true;
}

bool MQTTAdapter::DoCmdGetLcdBright(const Json::Value& /*payload*/, const std::string& /*version*/,
                                    Json::Value& response) {
  const std::shared_ptr<const Json::Value> record = ReadAdRecord();
  if (!record) {
    return false;
  }
  const Json::Value& settings = Member(*record, "body");
  Json::Value& body = response["body"];
  body["lcd_bright_mode"] = Member(settings, "led_bright_mode");
  body["lcd_bright_time_ctrl"] = Member(settings, "led_bright_time_ctrl");
  Publish("get_lcd_bright", response, kTagGetLcdBright);
  return true;
}

bool MQTTAdapter::DoCmdSetAdVoice(const Json::Value& payload, const std::string& /*version*/,
                                  Json::Value& response) {
  const std::shared_ptr<const Json::Value> record = ReadAdRecord();
  if (!record) {
    return false;
  }
  Json::Value request = WriteRequest(*record);
  const Json::Value& body = Member(payload, "body");
  if (!HasMember(body, "media_voice_time_ctrl")) {
    ADAPTER_LOG(kLogError, "SetAdVoice Fail, Dont have media_voice_time_ctrl");
    return false;
  }
  request["body"]["media_voice_time_ctrl"] = body["media_voice_time_ctrl"];
  return WriteAdRecord(request, response);
}

bool MQTTAdapter::DoCmdSetLcdBright(const Json::Value& payload, const std::string& /*version*/,
                                    Json::Value& response) {
  const std::shared_ptr<const Json::Value> record = ReadAdRecord();
  if (!record) {
    return false;
  }
  Json::Value request = WriteRequest(*record);
  const Json::Value& body = Member(payload, "body");
  if (!HasMember(body, "lcd_bright_time_ctrl") || !HasMember(body, "lcd_bright_mode")) {
    ADAPTER_LOG(kLogError, "SetLcdBright Fail, Dont have lcd_bright_time_ctrl or lcd_bright_mode");
    return false;
  }
  request["body"]["led_bright_mode"] = body["lcd_bright_mode"];
  request["body"]["led_bright_time_ctrl"] = body["lcd_bright_time_ctrl"];
  return WriteAdRecord(request, response);
}

}  // namespace qex
