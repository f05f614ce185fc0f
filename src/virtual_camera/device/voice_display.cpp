#include "virtual_camera/device/voice_display.h"

#include "json_text.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {

namespace {

constexpr char kSetting[] = "voice_display";

Json::Value Period(const char* begin, const char* end, const char* key, int value) {
  Json::Value period;
  period["begin"] = begin;
  period["end"] = end;
  period[key] = value;
  return period;
}

Json::Value Defaults() {
  Json::Value record;
  record["media_voice_time_ctrl"].append(Period("07:00", "21:00", "volume", 80));
  record["media_voice_time_ctrl"].append(Period("21:00", "07:00", "volume", 30));
  record["media_voice_language"] = "en";
  record["media_voice_speaker"] = 1;
  record["led_bright_mode"] = 0;
  record["led_bright_time_ctrl"].append(Period("06:00", "19:00", "bright", 90));
  record["led_bright_time_ctrl"].append(Period("19:00", "06:00", "bright", 40));
  record["led_scroll_speed"] = 3;
  record["led_idle_text"] = "WELCOME";
  return record;
}

}  // namespace

VoiceDisplay::VoiceDisplay(Settings& settings)
    : settings_(settings), record_(settings.JsonValue(kSetting, Defaults())) {}

void VoiceDisplay::Write(const Json::Value& record) {
  std::string text;
  if (!record.isObject()) {
    throw RequestError("the record is not an object");
  }
  if (!Json::Json2String(record, text) || text.size() > kMaxBytes) {
    throw RequestError("the record is too large");
  }
  settings_.SetText(kSetting, text);
  record_ = record;
}

}  // namespace virtual_camera
