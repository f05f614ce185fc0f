// Lane-control results: a person or a vehicle that stays in a lane. The device's
// picture paths never leave the camera; the cloud gets what the host's image
// function makes of the picture's number.
#include <cstdio>

#include "chw_info.h"
#include "json_access.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"
#include "tarvex/base64.h"
#include "tarvex/time_util.h"

namespace qex {
namespace {

/// Numbers the pictures of lane-control results, apart from those of plates: one
/// counter for the whole process, never reset.
uint32_t g_lane_image_counter = 0;

constexpr int kPersonStays = 128;
constexpr int kVehicleStays = 129;

std::string SoftwareVersion() {
  ChwInfo* info = ChwInfo::Interface();
  return info != nullptr ? info->GetAppVer() : std::string();
}

/// Copies a picture's description into an entry, without the path on the device. One of
/// another shape is left out: the event is worth more than the picture.
void CopyImage(const Json::Value& image, const char* key, Json::Value& entry) {
  if (!image.isNull() && !image.isObject()) {
    ADAPTER_LOG_AS("PackLanectrlResult", kLogWarning, "%s left out, not json object", key);
    return;
  }
  entry[key] = image;
  entry[key].removeMember("file_name");
}

}  // namespace

void MQTTAdapter::PackLanectrlResult(const Json::Value& message, Json::Value& output) {
  output["device_info"] = Member(message, "device_info");
  output["device_info"]["soft_ver"] = SoftwareVersion();
  output["time"] = tarvex::XTimeUtil::TimeLocalToString(tarvex::XTimeUtil::TimeSecond());
  output["isoffline"] = 0;

  const Json::Value& results = Member(message, "results");
  const Json::Value& first = Element(results, 0);
  if (HasMember(first, "result_id")) {
    output["result_id"] = first["result_id"].asInt();
  }
  if (HasMember(first, "event_type")) {
    output["event_type"] = first["event_type"].asInt();
  }
  if (HasMember(message, "uid")) {
    output["plateid"] = message["uid"];
  }

  const Json::Value& full_images = Member(message, "full_image");
  const Json::Value& small_images = Member(message, "small_image");
  Json::Value& entries = output["result"];  // stays null without a full image
  for (Json::ArrayIndex i = 0; full_images.isArray() && i < full_images.size(); ++i) {
    Json::Value& entry = entries[i];
    entry = Json::Value(Json::objectValue);
    CopyImage(full_images[i], "full_image", entry);
    if (small_images.isArray() && i < small_images.size()) {
      CopyImage(small_images[i], "small_image", entry);
    }
    const Json::Value& result = Element(results, i);
    if (HasMember(result, "plate_result")) {
      entry["plate_result"] = result["plate_result"];
    }
  }
}

int MQTTAdapter::OnLanectrlResultEvent(Json::Value& message, int isoffline) {
  Json::Value output;
  PackLanectrlResult(message, output);
  if (PackLanectrlImgInfo(output, output["result"]) != kStateOk) {
    ADAPTER_LOG(kLogError, " OnLanectrlResultEvent PackLanectrlImgInfo error.");
    return kStateBad;
  }
  ADAPTER_LOG(kLogInfo, "lanectrl_result:%s.", output.toStyledString().c_str());
  Publish("lanectrl_result", output, isoffline != 0 ? kTagOfflineResult : kTagLanectrlResult);
  return kStateOk;
}

int MQTTAdapter::SendLanectrlResultEvent(Json::Value& message) {
  Json::Value output;
  PackLanectrlResult(message, output);
  if (PackLanectrlImgInfo(output, output["result"]) != kStateOk) {
    ADAPTER_LOG(kLogError, " OnLanectrlResultEvent PackLanectrlImgInfo error.");
    return kStateBad;
  }
  Publish("get_last_result", output, kTagGetLastResult);
  return kStateOk;
}

int MQTTAdapter::PackLanectrlImgInfo(Json::Value snapshot, Json::Value& result) {
  if (!m_image_func_) {
    return kStateOk;
  }
  const std::string stem = std::to_string(tarvex::XTimeUtil::TimeSecond()) + "_" + m_sn_ + "_" +
                           std::to_string(Member(snapshot, "result_id").asInt()) + "_";
  for (Json::ArrayIndex i = 0; i < result.size(); ++i) {
    const Json::Value& entry = Element(Member(snapshot, "result"), i);
    if (HasMember(entry, "full_image")) {
      const Json::Value& image_id = Member(entry["full_image"], "full_image_id");
      if (image_id.isConvertibleTo(Json::intValue)) {
        const std::string id = std::to_string(image_id.asInt());
        printf("decode_path:big:%s\r\n", id.c_str());
        const std::string name = stem + std::to_string(g_lane_image_counter++) + "_full.jpg";
        result[i]["full_image"]["full_image_path"] =
            tarvex::Base64::Encode(m_image_func_(id, name));
      } else {
        ADAPTER_LOG(kLogWarning, "full_image left without a path, full_image_id not int");
      }
    }
    if (HasMember(entry, "small_image")) {
      // The counter advances also when no picture follows.
      const std::string name = stem + std::to_string(g_lane_image_counter++) + "_clip.jpg";
      const Json::Value& image_id = Member(entry["small_image"], "small_image_id");
      if (image_id.isInt()) {
        const std::string id = std::to_string(image_id.asInt());
        result[i]["small_image"]["small_image_path"] =
            tarvex::Base64::Encode(m_image_func_(id, name));
        printf("decode_path:small:%s\r\n", id.c_str());
      }
    }
  }
  return kStateOk;
}

void MQTTAdapter::IvsStruct2Json(IVS_EVENT_PARAM* event, Json::Value& out) {
  out["cmd"] = "common_alarm_result";
  out["module"] = "TCP_BUS_REQUEST";
  out["type"] = "common_alarm_result";
  out["uid"] = event->uid;

  Json::Value& device = out["device_info"];
  device["alg_chn"] = event->alg_chn;
  device["chn_id"] = event->chn_id;
  device["dev_ip"] = GetDeviceIpFromDb();
  device["dev_port"] = 80;
  device["rule_id"] = event->rule_id;

  // The file names are fixed test paths, by intention.
  Json::Value& full = out["full_image"][0U];
  Json::Value& crop = full["fe_crop_info"];
  crop["left"] = event->crop_left;
  crop["top"] = event->crop_top;
  crop["width"] = event->crop_width;
  crop["height"] = event->crop_height;
  full["file_name"] = "/nfsroot/test_big.jpeg";
  full["full_image_id"] = event->full_image_id;
  full["image_type"] = event->full_image_type;

  Json::Value& small = out["small_image"][0U];
  small["image_type"] = event->small_image_type;
  small["file_name"] = "/nfsroot/test_small.jpeg";
  small["small_image_id"] = event->small_image_id;

  Json::Value& result = out["results"][0U];
  result["type"] = "common_alarm_lane_control";
  result["event_type"] = event->event_type;
  result["result_id"] = event->rule_id;  // the rule again
  char time_text[64];
  snprintf(time_text, sizeof(time_text), "%4d-%2d-%2d %2d:%2d:%2d", event->year, event->month,
           event->day, event->hour, event->minute, event->second);
  result["time"] = time_text;
  if (event->event_type == kPersonStays) {
    result["lane_ctrl_prop"]["person_stay_result"]["alarm_state"] = 1;
  } else if (event->event_type == kVehicleStays) {
    result["lane_ctrl_prop"]["car_stay_result"]["alarm_state"] = 1;
  }
  if (event->plate_true_width > 0) {
    Json::Value& plate = result["plate_result"];
    plate["plate_true_width"] = event->plate_true_width;
    plate["confidence"] = event->confidence;
    plate["color_type"] = RecordText(*event, offsetof(IVS_EVENT_PARAM, color_type));
    plate["license"] = RecordText(*event, offsetof(IVS_EVENT_PARAM, license));
    plate["type"] = RecordText(*event, offsetof(IVS_EVENT_PARAM, type));
  }
}

}  // namespace qex
